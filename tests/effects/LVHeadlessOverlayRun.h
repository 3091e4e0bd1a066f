#pragma once
// The real lumaveil run headless on a saved setup of the given effects, watched until one of
// its published frames shows what a test expects.
#include "setups/model/LVSavedSetup.h"
#include "tests/effects/LVOverlayTestSupport.h"
#include "tests/support/LVTestSupport.h"

#include <QProcess>
#include <QTemporaryDir>

// Answers whether a frame was accepted; log gets what the child wrote to standard error.
inline bool lvHeadlessFrameMatches(const std::vector<LVEffectRef>& effects,
                                   const std::function<bool(const LVOverlayFrame&)>& accept, QString* log)
{
    QTemporaryDir home;
    const QString setup = home.filePath(QStringLiteral("Overlay.json"));
    if (!LVSavedSetup(effects, setup).persist()) return false;
    QProcess process;
    process.setProcessEnvironment(lvPrivateEnvironment(home));
    process.setProgram(QStringLiteral(LV_LUMAVEIL_BINARY));
    process.setArguments({QStringLiteral("--headless"), QStringLiteral("--setup"), setup, QStringLiteral("--video-size"),
                          QStringLiteral("320x240"), QStringLiteral("--fps"), QStringLiteral("30")});
    process.start();
    const bool accepted =
        process.waitForStarted() && lvWatchFrames(process, 0, [&](const LVShmemReadResult& read, const uint8_t* argb) {
            LVOverlayFrame frame{int(read.width), int(read.height), {}};
            frame.argb.assign(argb, argb + size_t(read.width) * size_t(read.height) * 4);
            return accept(frame);
        });
    process.terminate();
    process.waitForFinished(30000);
    *log = QString::fromUtf8(process.readAllStandardError());
    lvUnlinkFrameSegments();
    return accepted;
}
