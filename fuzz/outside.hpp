// What lies outside a parser while it is tried: files, connections, clock and shell, in memory alone, so that a try asks
// nothing of the system. The linker's --wrap brings the C library's calls here (OUTSIDE_CALLS in CMakeLists.txt).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Ends the program: a finding.
inline void must(bool good)
{
    if (!good) abort();
}

// One at a time. At its end every descriptor must have been closed.
class Outside {
public:
    Outside();
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

    // A file; bytes from `sparse` on are the starts of erase blocks, 12 of each, with nothing between them.
    void file(std::string_view path, std::string_view bytes, size_t sparse = SIZE_MAX);
    // Empty for a file that is not there.
    [[nodiscard]] std::string_view read(std::string_view path) const;
    // A descriptor at the file's first byte.
    [[nodiscard]] int open(std::string_view path) const;
    // A connection or a line with these bytes on the way. After them it ends, or is silent while time passes.
    [[nodiscard]] int connection(std::string_view bytes, bool ends = true);
    // The same behind a path.
    void device(std::string_view path, std::string_view bytes, bool ends);
    // What was written to connections.
    [[nodiscard]] const std::string& sent() const;
};
