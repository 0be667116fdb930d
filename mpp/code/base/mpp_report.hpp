// How the platform's modules report: codes, log lines on standard error, failed assertions on standard
// output.
#pragma once

#include "base/mpp_error.h"

namespace zep {

// The codes of a module: constexpr ModuleError coded{HI_ID_AI}; return coded(MPP_ERR_NULL);
struct ModuleError {
    MOD_ID module;
    constexpr int32_t operator()(uint32_t number) const { return MPP_ERROR(module, number); }
};

// "[Func]:<function> [Line]:<line> [Info]:<message>" on standard error; the message brings its own newline.
[[gnu::format(printf, 3, 4)]] void mpp_log(const char* function, int line, const char* format, ...);

// Prints the block that names the place on standard output, flushes it and ends the process with _exit(-1).
[[noreturn]] void mpp_assert_failed(const char* file, const char* function, int line, const char* condition);

// The platform's only assertion. `file` is the module's published source path, which has no extension and
// does not move with the sources; `condition` is the published text, which need not be the expression:
// stringised, NULL would print as the compiler's own word for it.
inline void mpp_assert(bool holds, const char* file, const char* function, int line, const char* condition)
{
    if (!holds) mpp_assert_failed(file, function, line, condition);
}

} // namespace zep

#define MPP_LOG(...) ::zep::mpp_log(__func__, __LINE__, __VA_ARGS__)
