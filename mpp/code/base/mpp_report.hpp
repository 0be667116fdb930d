// How the platform's modules speak: log lines on standard error, failed assertions on standard output.
#pragma once

namespace zep {

// "[Func]:<function> [Line]:<line> [Info]:<message>" on standard error; the message brings its own newline.
[[gnu::format(printf, 3, 4)]] void mpp_log(const char* function, int line, const char* format, ...);

// Prints the block that names the place on standard output, flushes it and ends the process with _exit(-1).
[[noreturn]] void mpp_assert_failed(const char* file, const char* function, int line, const char* condition);

} // namespace zep

#define MPP_LOG(...) ::zep::mpp_log(__func__, __LINE__, __VA_ARGS__)

// FILE is the module's published source path, which has no extension and does not move with the sources.
#define MPP_ASSERT(FILE, CONDITION)                                                                          \
    ((CONDITION) ? (void)0 : ::zep::mpp_assert_failed((FILE), __func__, __LINE__, #CONDITION))
