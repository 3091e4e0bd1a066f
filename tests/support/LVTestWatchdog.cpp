// Linked into every test program: a test that runs far longer than any test should is taken as
// hung. The watchdog prints every thread's stack (with gdb, where installed) and ends the program,
// so a rare deadlock leaves its stacks in the log instead of a bare timeout.
#include "tests/support/LVChildProcess.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Below ctest's own limit, so the stacks come out before it kills the program.
std::chrono::seconds hangLimit()
{
    const char* text = std::getenv("LV_TEST_HANG_SECONDS");
    const int seconds = text ? std::atoi(text) : 0;
    return std::chrono::seconds(seconds > 0 ? seconds : 120);
}

void printStacks()
{
    // A child may trace its parent only when the parent allows it (Yama).
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    const std::string pid = std::to_string(getpid());
    const pid_t gdb = fork();
    if (gdb == 0) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        execlp("gdb", "gdb", "-nx", "-batch", "-p", pid.c_str(), "-ex", "thread apply all bt", static_cast<char*>(nullptr));
        std::fprintf(stderr, "No stacks: gdb is not installed\n");
        _exit(127);
    }
    // gdb itself may stall on a stuck process; it gets a minute.
    if (gdb > 0) lvReapOrKill(gdb, std::chrono::minutes(1));
}

class Watchdog : public testing::Environment, public testing::EmptyTestEventListener {
public:
    void SetUp() override
    {
        testing::UnitTest::GetInstance()->listeners().Append(this);
        thread_ = std::thread([this] { watch(); });
    }
    void TearDown() override
    {
        {
            std::lock_guard<std::mutex> hold(lock_);
            quit_ = true;
        }
        changed_.notify_all();
        thread_.join();
        testing::UnitTest::GetInstance()->listeners().Release(this);
    }
    void OnTestStart(const testing::TestInfo& info) override
    {
        std::lock_guard<std::mutex> hold(lock_);
        name_ = std::string(info.test_suite_name()) + "." + info.name();
        started_ = Clock::now();
        running_ = true;
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        std::lock_guard<std::mutex> hold(lock_);
        running_ = false;
    }

private:
    void watch()
    {
        const auto limit = hangLimit();
        std::unique_lock<std::mutex> hold(lock_);
        while (!quit_) {
            changed_.wait_for(hold, std::chrono::seconds(1));
            if (!running_ || Clock::now() - started_ < limit) continue;
            std::fprintf(stderr, "\n%s has run for %lld s: taken as hung. Thread stacks follow.\n", name_.c_str(),
                         static_cast<long long>(limit.count()));
            std::fflush(stderr);
            hold.unlock();
            printStacks();
            // Not exit(): the hung threads may hold what exit's handlers need.
            _exit(124);
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    std::thread thread_;
    std::string name_;
    Clock::time_point started_;
    bool running_ = false;
    bool quit_ = false;
};

// gtest owns and deletes the environment; the listener is released before that.
[[maybe_unused]] testing::Environment* const kWatchdog = testing::AddGlobalTestEnvironment(new Watchdog);

} // namespace
