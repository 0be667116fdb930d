// Buffered forward reading of a package file.
#include "upgrade/file_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace zep {

void FileReader::fill()
{
    begin_ = end_ = 0;
    while (end_ < sizeof buffer_ && !error_) {
        ssize_t n = read(fd_, buffer_ + end_, sizeof buffer_ - end_);
        if (n == 0) return;
        if (n > 0) end_ += size_t(n);
        if (n < 0 && errno != EINTR) error_ = errno;
    }
}

std::span<const uint8_t> FileReader::next(size_t wanted)
{
    if (begin_ == end_ && !error_) fill();
    size_t n = std::min({wanted, kChunk, end_ - begin_});
    std::span<const uint8_t> chunk(buffer_ + begin_, n);
    begin_ += n;
    return chunk;
}

} // namespace zep
