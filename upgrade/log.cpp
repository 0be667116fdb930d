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

} // namespace

void log_alert(const char* format, ...)
{
    int saved = errno;
    char line[PATH_MAX + 256]; // the longest lines name one path
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    current(line);
    errno = saved;
}

void log_to_syslog(const char* line) { syslog(LOG_ALERT, "%s", line); }

LogSink log_redirect(LogSink sink)
{
    LogSink former = current;
    current = sink;
    return former;
}

} // namespace zep
