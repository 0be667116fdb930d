// What a factory test prints: its steps, its verdict, and what somebody must look after.
#include "factory/verdict.hpp"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace zep {

void Steps::say(const char* format, ...) const
{
    if (!verbose) return;
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

int print_verdict(bool passed)
{
    puts(passed ? "successful" : "failed");
    return 0;
}

void warn(const char* format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    fprintf(stderr, "%s\n", line);
    syslog(LOG_ALERT, "%s", line);
}

} // namespace zep
