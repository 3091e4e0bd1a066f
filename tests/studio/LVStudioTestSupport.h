#pragma once
// Studio buttons over real setups in a temporary folder, and a real controller with the
// bundled Effects, a hand-moved clock and real shared memory for the studio's frame tests.
#include "core/util/KDDelayedDispatcher.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"
#include "tests/app/LVControllerFixture.h"

#include <array>
#include <cstdlib>
#include <map>
#include <ostream>
#include <vector>

inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QStringList& l, std::ostream* os) { *os << '[' << l.join(", ").toStdString() << ']'; }

inline void ensureTestApplication()
{
    lvEnsureApplication();
    LVRegisterTestKinds();
}

// A setup of a source (or none) plus markers, never written to disk.
inline LVSavedSetupRef makeLooseSetup(const QTemporaryDir& dir, const QString& name, bool withSource, int markers = 1)
{
    std::vector<LVEffectRef> effects;
    if (withSource) effects.push_back(makeTestEffect(QStringLiteral("RedSource"), nullptr));
    for (int i = 0; i < markers; ++i) effects.push_back(makeTestEffect(QStringLiteral("Marker"), nullptr));
    return std::make_shared<LVSavedSetup>(effects, dir.filePath(name));
}

// One pixel of a frame as A, R, G, B.
using ARGB = std::array<int, 4>;

// Blends are exact to one step of rounding.
inline bool lvNearPixel(const ARGB& a, const ARGB& b)
{
    for (size_t i = 0; i < 4; ++i)
        if (std::abs(a[i] - b[i]) > 1) return false;
    return true;
}

class LVStudioTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ensureTestApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        startApp();
    }

    void TearDown() override
    {
        if (app) app->setStudio(nullptr);
        manager.reset();
        app.reset();
        defaults.reset();
        KDDelayedDispatcher::flush();
    }

    void startApp()
    {
        if (app) app->setStudio(nullptr);
        manager.reset();
        app.reset();
        LVLaunchOptions options;
        options.startTimer = false;
        options.folders.bundled = QStringLiteral(LV_BUILD_EFFECTS_DIR);
        options.folders.user = dir.filePath(QStringLiteral("none"));
        options.folders.system = dir.filePath(QStringLiteral("none"));
        QString error;
        app = Lumaveil::create(*defaults, options, &error, &clock);
        ASSERT_TRUE(app) << error.toStdString();
        app->awakeFromNib();
        manager = std::make_unique<LVSetupManager>(*defaults, app->context(), dir.filePath(QStringLiteral("setups")));
        manager->startup();
        app->setSetupCatalog(manager.get());
        auto owned = std::make_unique<LVStudio>(*app, *manager, &clock);
        studio = owned.get();
        app->setStudio(std::move(owned));
        studio->startup();
    }

    // A setup on disk: a source painting the whole frame in colour (when valid), plus
    // markers; its button is made by the studio.
    LVStudioButtonRef addSetup(const QString& name, QColor colour = {}, int markers = 0)
    {
        std::vector<LVEffectRef> effects;
        if (colour.isValid()) effects.push_back(makeTestEffect(QStringLiteral("RedSource"), app->context()));
        for (int i = 0; i < markers; ++i) effects.push_back(makeTestEffect(QStringLiteral("Marker"), app->context()));
        if (!manager->newSavedSetupWithName(name, effects)) return nullptr;
        LVStudioButtonRef button = studio->buttonHavingName(name);
        if (button && colour.isValid()) paintSolid(*button, colour);
        return button;
    }

    static void paintSolid(LVStudioButton& button, QColor colour)
    {
        auto source = std::dynamic_pointer_cast<LVRecordingEffect>(button.source());
        if (!source) return;
        source->paint = [colour](LVContext& context) {
            fillFrameRect(context, 0, 0, context.width(), context.height(), colour);
        };
    }

    // One frame, the clock moved first.
    void frameAfter(double seconds)
    {
        clock.advance(seconds);
        app->renderFrame();
    }

    // A pixel of the last frame published to shared memory, as the camera driver reads it.
    ARGB pixel(int x, int y)
    {
        LVShmem reader(LVShmemRole::Reader);
        std::unique_ptr<uint8_t[]> bytes;
        uint64_t length = 0;
        const LVShmemReadResult read = reader.getData(bytes, length, 0);
        if (read.status != 0 || x >= read.width || y >= read.height) {
            ADD_FAILURE() << "no published frame: status " << read.status;
            return {};
        }
        const size_t at = (size_t(y) * size_t(read.width) + size_t(x)) * 4;
        return {bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]};
    }

    QStringList chainNames() const
    {
        QStringList names;
        for (const auto& effect : app->liveEffects()) names.append(effect->savedSetupName() + QLatin1Char(':') + effect->name());
        return names;
    }

    QTemporaryDir dir;
    LVManualClock clock;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVSetupManager> manager;
    LVStudio* studio = nullptr;
};
