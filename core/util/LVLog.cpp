#include "core/util/LVLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void LVLog(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
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
