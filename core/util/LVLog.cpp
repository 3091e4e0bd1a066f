#include "core/util/LVLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
thread_local LVLogRepeatsCollapsed* collapsing = nullptr;
}

void LVLog(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    if (collapsing) {
        char buffer[1024];
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        collapsing->hold(buffer);
        return;
    }
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}

LVLogRepeatsCollapsed::LVLogRepeatsCollapsed(std::string prefix) : prefix_(std::move(prefix)), outer_(collapsing)
{
    collapsing = this;
}

LVLogRepeatsCollapsed::~LVLogRepeatsCollapsed()
{
    collapsing = outer_;
    for (const auto& [line, count] : lines_) {
        if (count == 1)
            LVLog("%s%s", prefix_.c_str(), line.c_str());
        else
            LVLog("%s%s (%ld times)", prefix_.c_str(), line.c_str(), count);
    }
    if (others_ > 0)
        LVLog("%s... and %ld more lines like these", prefix_.c_str(), others_);
}

void LVLogRepeatsCollapsed::hold(std::string line)
{
    // Few distinct lines are expected: a linear search keeps the order of first appearance.
    for (auto& [held, count] : lines_) {
        if (held == line) {
            ++count;
            return;
        }
    }
    if (lines_.size() == kMaxDistinct) {
        ++others_;
        return;
    }
    lines_.emplace_back(std::move(line), 1);
}

void LVLogSystemError(const char* call)
{
    std::perror(call);
}

void LVLogDebug(const char* format, ...)
{
    static const bool enabled = [] {
        const char* value = std::getenv("LUMAVEIL_DEBUG");
        return value && *value && std::strcmp(value, "0") != 0;
    }();
    if (!enabled)
        return;
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}
