#pragma once
// Ending a helper process a test started, without ever waiting on it for long.
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

// Waits up to grace for pid to end, then kills it and reaps it.
inline void lvReapOrKill(pid_t pid, std::chrono::milliseconds grace)
{
    constexpr auto step = std::chrono::milliseconds(10);
    for (auto waited = std::chrono::milliseconds(0); waited < grace; waited += step) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) return;
        std::this_thread::sleep_for(step);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}
