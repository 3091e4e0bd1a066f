// The controller's second output as the application wires it: the frame read back once and
// published as the PipeWire video node "Lumaveil", made only while the preference is on.
#include "app/LVPipeWireSecondOutput.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "render/LVContext.h"
#include "render/pipewire/LVPipeWireOutput.h"
#include "tests/render/pipewire/LVPipeWireReader.h"
#include "tests/app/LVTestKinds.h"
#include "tests/support/LVPipeWireDaemon.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <atomic>
#include <cstring>

namespace {

TEST(LVPipeWireSecondOutputTest, NodeCarriesTheFullFrameOnlyWhileThePreferenceIsOn)
{
    lvEnsureApplication();
    LVRegisterTestKinds();
    std::unique_ptr<LVPipeWireDaemon> daemon;
    LV_START_PIPEWIRE(daemon);
    QTemporaryDir dir;
    std::atomic<LVPipeWireSecondOutput*> second = nullptr;
    int made = 0;
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    defaults.setValue(QStringLiteral("syphonServerEnabled"), true);
    LVLaunchOptions options;
    options.startTimer = false;
    options.noPublish = true;
    QString error;
    std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    ASSERT_TRUE(app) << error.toStdString();
    app->setSecondOutputMaker([&] {
        ++made;
        auto output = std::make_unique<LVPipeWireSecondOutput>();
        second = output.get();
        return output;
    });
    // R 0.2, G 0.4, B 0.6: the bytes 0x33, 0x66, 0x99 whatever the order they end up in.
    auto source = makeTestEffect(QStringLiteral("RedSource"), app->context());
    source->paint = [](LVContext& context) {
        fillFrameRect(context, 0, 0, context.width(), context.height(), QColor(0x33, 0x66, 0x99));
    };
    app->setSource(source);
    EXPECT_EQ(made, 0) << "the node is made by the first frame, not before";
    const int width = app->context()->width();
    const int height = app->context()->height();
    // A reader is linked only to a node that is there.
    ASSERT_TRUE(lvWaitFor([&] {
        app->renderFrame();
        return second && second.load()->output().isPublished();
    }));
    LVPipeWireReader reader(QStringLiteral("Lumaveil"));
    const auto frame = reader.next([](const LVReadFrame&) { return true; }, [&] { app->renderFrame(); });
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width, width);
    EXPECT_EQ(frame->height, height);
    const uint8_t expected[4] = {0x99, 0x66, 0x33, 0xFF}; // B, G, R, A
    for (int y : {0, height / 2, height - 1}) {
        for (int x : {0, width / 2, width - 1}) {
            EXPECT_EQ(std::memcmp(frame->row(y) + x * 4, expected, 4), 0) << x << "," << y;
        }
    }

    // Off stops the frames but keeps the node; on again goes on with the same one. The node is
    // fed on its own thread: at most the frame being pushed and the one waiting still arrive.
    LVPipeWireOutput& node = second.load()->output();
    app->setSyphonServerEnabled(false);
    const uint64_t pushed = node.counts().pushed;
    for (int i = 0; i < 5; ++i) app->renderFrame();
    EXPECT_LE(node.counts().pushed, pushed + 2);
    app->setSyphonServerEnabled(true);
    const uint64_t resumed = node.counts().pushed;
    EXPECT_TRUE(lvWaitFor([&] {
        app->renderFrame();
        return node.counts().pushed > resumed;
    }));
    EXPECT_EQ(made, 1);
}

} // namespace
