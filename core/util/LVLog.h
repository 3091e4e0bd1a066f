#pragma once
// Logging: failures are logged, not raised. Messages go to standard error.
#include <string>

// Prints one line, printf-style.
void LVLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Prints "call: <system error text>" for the current errno, like perror.
void LVLogSystemError(const char* call);
// Prints one line only when LUMAVEIL_DEBUG is set: routine detail a user need not see.
void LVLogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));
