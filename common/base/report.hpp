// The two shapes of a library failure message, one line on standard output each. errno survives.
#pragma once

namespace zep {

// "[<function>] error, reason(<text>)\n"
[[gnu::format(printf, 2, 3)]] void report_reason(const char* function, const char* format, ...);

// "[<function>] Error Number : <errno>, Error String : <its text>\n"
void report_errno(const char* function);

} // namespace zep
