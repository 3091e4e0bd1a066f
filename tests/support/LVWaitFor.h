#pragma once
// Waiting in tests for what other threads, processes or this thread's own events bring about.
#include <QCoreApplication>

#include <chrono>
#include <functional>
#include <thread>

// Serves this thread's events (where there is an application) until done() holds or the seconds
// have passed; answers done().
inline bool lvWaitFor(const std::function<bool()>& done, double seconds = 20)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        if (QCoreApplication::instance()) QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
