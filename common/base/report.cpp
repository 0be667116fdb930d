// The two shapes of a library failure message.
#include "common/base/report.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zep {

void report_reason(const char* function, const char* format, ...)
{
    int saved = errno;
    char reason[512];
    va_list args;
    va_start(args, format);
    vsnprintf(reason, sizeof reason, format, args);
    va_end(args);
    printf("[%s] error, reason(%s)\n", function, reason);
    errno = saved;
}

void report_errno(const char* function)
{
    int saved = errno;
    printf("[%s] Error Number : %d, Error String : %s\n", function, saved, strerror(saved));
    errno = saved;
}

} // namespace zep
