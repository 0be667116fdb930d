// The upgrade's log lines.
#include "upgrade/log.hpp"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace zep {
namespace {

constinit LogSink current = log_to_syslog;

[[gnu::format(printf, 2, 0)]] void log_line(bool print, const char* format, va_list args)
{
    int saved = errno;
    char line[PATH_MAX + 256]; // the longest lines name one path
    vsnprintf(line, sizeof line, format, args);
    current(line);
    if (print) fprintf(stderr, "%s\n", line);
    errno = saved;
}

} // namespace

void log_alert(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    log_line(false, format, args);
    va_end(args);
}

void log_and_print(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    log_line(true, format, args);
    va_end(args);
}

void log_to_syslog(const char* line) { syslog(LOG_ALERT, "%s", line); }

LogSink log_redirect(LogSink sink)
{
    LogSink former = current;
    current = sink;
    return former;
}

} // namespace zep
