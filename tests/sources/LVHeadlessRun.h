#pragma once
// One headless lumaveil run watched until its published frames show what a test waits for,
// shared by the sources' end-to-end tests.
#include "tests/support/LVTestSupport.h"

struct LVHeadlessRun {
    bool seen = false;
    std::string log; // the run's standard error
};

// Runs program (lumaveil) with --headless and arguments until accept() takes a frame published
// by this run, the run ends or limit passes; then asks it to quit.
inline LVHeadlessRun lvRunHeadless(const QString& program, const QProcessEnvironment& environment,
                                   const QStringList& arguments,
                                   const std::function<bool(const LVShmemReadResult&, const uint8_t* argb)>& accept,
                                   std::chrono::seconds limit = std::chrono::seconds(30))
{
    QProcess process;
    process.setProcessEnvironment(environment);
    // Frames an earlier run left are older than this.
    const uint64_t started = LVShmem::currentHostTime();
    process.start(program, QStringList{QStringLiteral("--headless")} + arguments);
    if (!process.waitForStarted()) return {false, process.errorString().toStdString()};
    LVHeadlessRun run;
    run.seen = lvWatchFrames(process, started, accept, limit);
    process.terminate();
    if (!process.waitForFinished(10000)) process.kill();
    run.log = process.readAllStandardError().toStdString();
    return run;
}
