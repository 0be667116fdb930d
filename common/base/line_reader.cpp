// Lines of a file as fgets delivers them, with their true length.
#include "common/base/line_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace zep {

bool LineReader::refill()
{
    ssize_t got;
    do got = read(fd_, chunk_, sizeof chunk_);
    while (got < 0 && errno == EINTR);
    failed_ = got < 0;
    begin_ = 0;
    end_ = got > 0 ? size_t(got) : 0;
    return got > 0;
}

ssize_t LineReader::next(std::span<char> line)
{
    size_t length = 0;
    while (length + 1 < line.size()) {
        if (begin_ == end_ && !refill()) break;
        size_t room = std::min(end_ - begin_, line.size() - 1 - length);
        const void* feed = memchr(chunk_ + begin_, '\n', room);
        size_t taken = feed ? size_t(static_cast<const char*>(feed) - (chunk_ + begin_)) + 1 : room;
        memcpy(line.data() + length, chunk_ + begin_, taken);
        begin_ += taken;
        length += taken;
        if (feed) break;
    }
    line[length] = '\0';
    return failed_ ? -1 : ssize_t(length);
}

ssize_t LineReader::next_whole(std::span<char> line)
{
    for (bool inside = false;;) {
        ssize_t length = next(line);
        if (length <= 0) return length;
        const bool ended = line[size_t(length) - 1] == '\n';
        if (!inside && (ended || size_t(length) + 1 < line.size())) return length;
        inside = !ended;
    }
}

} // namespace zep
