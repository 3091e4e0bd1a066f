#include "core/util/LVLog.h"

#include <cstdarg>
#include <cstdio>

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
