// Compiled programs live as long as the composition version they were made for.
#include "effects/composition/LVISFProgram.h"
#include "tests/effects/LVEffectsTestSupport.h"

#include <gtest/gtest.h>

namespace {

const QByteArray kRed = "/*{\"INPUTS\": []}*/\nvoid main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }\n";
const QByteArray kGreen = "/*{\"INPUTS\": []}*/\nvoid main() { gl_FragColor = vec4(0.0, 1.0, 0.0, 1.0); }\n";
const QByteArray kTwoPasses = "/*{\"PASSES\": [{\"TARGET\": \"a\"}, {}]}*/\nvoid main() { gl_FragColor = vec4(1.0); }\n";

TEST_F(LVEffectsTest, AReplacedOrDroppedCompositionFreesItsProgramsAtTheNextAsk)
{
    struct Case {
        const char* what;
        QByteArray before, after; // after empty: dropped, not replaced
        size_t passes;
    };
    const Case cases[] = {
        {"re-read with a new shader", kRed, kGreen, 1},
        {"dropped", kRed, {}, 1},
        {"a two-pass one dropped", kTwoPasses, {}, 2},
    };
    ctx->makeCurrent();
    const auto other = LVComposition::parse(write(QStringLiteral("Other.fs"), kGreen), kGreen, {});
    for (const Case& c : cases) {
        // Any ask frees what earlier rounds let go, so the count starts clean.
        ASSERT_TRUE(LVISFProgramFor(*other, 0));
        const QString path = write(QStringLiteral("Prog.fs"), c.before);
        auto old = LVComposition::parse(path, c.before, {});
        ASSERT_TRUE(old->isValid()) << old->error().toStdString();
        const size_t base = LVISFProgramCount();
        std::vector<GLuint> names;
        for (size_t pass = 0; pass < c.passes; ++pass) {
            const LVISFProgram* program = LVISFProgramFor(*old, int(pass));
            ASSERT_TRUE(program) << c.what;
            names.push_back(program->program);
        }
        EXPECT_EQ(LVISFProgramCount(), base + c.passes) << c.what;

        std::shared_ptr<const LVComposition> replacement;
        if (!c.after.isEmpty()) replacement = LVComposition::parse(path, c.after, {});
        old.reset();
        // Freed on the render thread's next ask, whatever composition it is for.
        ASSERT_TRUE(LVISFProgramFor(replacement ? *replacement : *other, 0)) << c.what;
        EXPECT_EQ(LVISFProgramCount(), base + (replacement ? 1 : 0)) << c.what;
        for (GLuint name : names) EXPECT_FALSE(glIsProgram(name)) << c.what;
    }
}

} // namespace
