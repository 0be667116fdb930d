// What the fuzz targets share: each includes this once.
#pragma once

#include "tests/support/memory_file.hpp"

#include <cstdint>
#include <cstring>

// What a target does with the fuzzer's bytes.
void try_bytes(const std::string& bytes);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try_bytes({reinterpret_cast<const char*>(data), size});
    return 0;
}

inline void must(bool good)
{
    if (!good) abort();
}

// The lines that do not begin so, each with its line end.
inline std::string lines_without(const std::string& start, const std::string& text)
{
    std::string others;
    for (size_t at = 0; at < text.size();) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        if (!line.starts_with(start)) others += line + "\n";
        at += line.size() + 1;
    }
    return others;
}
