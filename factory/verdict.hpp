// What a factory test prints: its steps, its verdict, and warnings.
#pragma once

namespace zep {

// Messages of the steps on standard output, when "-v" was given.
struct Steps {
    bool verbose = false;
    [[gnu::format(printf, 2, 3)]] void say(const char* format, ...) const;
};

// Prints "successful" or "failed"; the handler's result.
int print_verdict(bool passed);

// One line on standard error and in the system log.
[[gnu::format(printf, 1, 2)]] void warn(const char* format, ...);

} // namespace zep
