// Lines of a file as fgets delivers them, with their true length.
#pragma once

#include <cstddef>
#include <span>
#include <sys/types.h>

namespace zep {

// A line longer than the caller's buffer comes in pieces of size - 1 characters. Unlike fgets the
// reader gives the length of a piece, so that bytes behind an embedded NUL are not lost, and
// distinguishes the end of the file from a failed read.
class LineReader {
public:
    // The descriptor stays the caller's.
    explicit LineReader(int fd) : fd_(fd) {}

    // Reads the next piece up to and with its line feed and terminates it. Returns its length, 0 at the
    // end of the file, -1 with errno on a read error. `line` holds two bytes or more.
    ssize_t next(std::span<char> line);

    // As next(), but a line that does not fit is skipped as a whole: none of its pieces can be taken for a
    // line.
    ssize_t next_whole(std::span<char> line);

private:
    bool refill();

    int fd_;
    bool failed_ = false;
    size_t begin_ = 0;
    size_t end_ = 0;
    char chunk_[4096];
};

} // namespace zep
