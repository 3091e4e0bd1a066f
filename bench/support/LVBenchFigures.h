#pragma once
// What the benchmarks share to measure and print: clocks, percentiles of samples, rounded
// values, one compact JSON object a line, waiting with the event loop served, and ffmpeg runs.
#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

using LVBenchClock = std::chrono::steady_clock;

inline double lvMsSince(LVBenchClock::time_point start)
{
    return std::chrono::duration<double, std::milli>(LVBenchClock::now() - start).count();
}

// CPU time of this process (or, with CLOCK_THREAD_CPUTIME_ID, of the calling thread), seconds.
inline double lvCpuSeconds(clockid_t clock = CLOCK_PROCESS_CPUTIME_ID)
{
    timespec now{};
    clock_gettime(clock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// The sample at that fraction of the sorted samples, nearest rank; 0 when there are none.
inline double lvPercentile(std::vector<double> samples, double fraction)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5))];
}

inline double lvRound3(double value)
{
    return double(qRound64(value * 1000.0)) / 1000.0;
}

inline void lvPrintJson(const QJsonObject& object)
{
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

// Serves this thread's event loop for that long: the render timer and sockets keep their turns.
inline void lvServeFor(double seconds)
{
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

// Runs ffmpeg with the arguments to its end; false (and its complaint on stderr) when it failed.
inline bool lvRunFfmpeg(const QStringList& arguments, double* wallSeconds = nullptr)
{
    QProcess ffmpeg;
    const auto start = LVBenchClock::now();
    ffmpeg.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-loglevel", "error", "-y"} + arguments);
    const bool ok = ffmpeg.waitForFinished(-1) && ffmpeg.exitCode() == 0;
    if (wallSeconds) *wallSeconds = lvMsSince(start) / 1000.0;
    if (!ok) std::fprintf(stderr, "ffmpeg failed: %s\n", ffmpeg.readAllStandardError().constData());
    return ok;
}
