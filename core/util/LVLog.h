#pragma once
// Logging: failures are logged, not raised. Messages go to standard error.
#include <string>
#include <utility>
#include <vector>

// Prints one line, printf-style.
void LVLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Prints "call: <system error text>" for the current errno, like perror.
void LVLogSystemError(const char* call);
// Prints one line only when LUMAVEIL_DEBUG is set: routine detail a user need not see.
void LVLogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

// While one is alive on a thread, LVLog lines on that thread are held and said once each when
// it ends, with a count for repeats: a file with a million bad entries gives one line, not a
// million.
class LVLogRepeatsCollapsed {
public:
    // Every line said is led by prefix ("Saved setup \"Show\": "), so it names its source.
    explicit LVLogRepeatsCollapsed(std::string prefix = {});
    ~LVLogRepeatsCollapsed();
    LVLogRepeatsCollapsed(const LVLogRepeatsCollapsed&) = delete;
    LVLogRepeatsCollapsed& operator=(const LVLogRepeatsCollapsed&) = delete;

private:
    friend void LVLog(const char* format, ...);
    void hold(std::string line);

    static constexpr size_t kMaxDistinct = 100;
    std::string prefix_;
    LVLogRepeatsCollapsed* outer_;
    long others_ = 0;
    std::vector<std::pair<std::string, long>> lines_; // in order of first appearance
};
