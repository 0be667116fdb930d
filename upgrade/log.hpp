// The upgrade's log lines: to the system log at LOG_ALERT, or wherever a program directs them.
#pragma once

namespace zep {

// Takes one formatted line, as it was logged (its line end included where it has one).
using LogSink = void (*)(const char* line);

// Logs one line. errno survives. Not locked: the upgrade logs from one thread.
[[gnu::format(printf, 1, 2)]] void log_alert(const char* format, ...);

// Logs one line without a line end and prints it on standard error: what went wrong beside the
// documented messages. errno survives.
[[gnu::format(printf, 1, 2)]] void log_and_print(const char* format, ...);

// The sink in force at the start: syslog at LOG_ALERT.
void log_to_syslog(const char* line);

// Directs all later lines to sink and returns the former one.
LogSink log_redirect(LogSink sink);

} // namespace zep
