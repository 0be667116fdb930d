// Packages and images as fwpkg reads them, and the output they go to.
#pragma once

#include "common/base/fd.hpp"
#include "tools/cli/output_file.hpp"

#include <cstdint>
#include <string>

namespace fwpkg {

struct Input {
    std::string path;
    zep::Fd fd;
    int64_t size = 0;

    // Opens a regular file. Throws std::runtime_error, which names it.
    void open(const std::string& file);
};

// Throws std::runtime_error of "<path>: <text>"; without text, that of errno.
[[noreturn]] void fail(const std::string& path, const char* text = nullptr);

// Copies size bytes from the input's position. Throws.
void copy_bytes(const Input& from, cli::OutputFile& to, int64_t size);

} // namespace fwpkg
