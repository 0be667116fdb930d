// Reads a package file forward in chunks, through a buffer of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zep {

// Chunks are whole until the file ends: a short read never cuts one, because flash with pages
// takes only whole ones. The descriptor stays the caller's.
class FileReader {
public:
    explicit FileReader(int fd) : fd_(fd) {}

    // The next bytes, at most wanted (up to kChunk); empty at the end of the file or after an
    // error. Valid until the next call.
    std::span<const uint8_t> next(size_t wanted);

    // The errno of the read that failed, 0 without one.
    [[nodiscard]] int error() const { return error_; }

    static constexpr size_t kChunk = 512;

private:
    void fill();

    int fd_;
    int error_ = 0;
    size_t begin_ = 0;
    size_t end_ = 0;
    // A multiple of the chunk: a chunk never straddles two fills. Larger than a chunk because a
    // system call a chunk costs more than the bytes it brings.
    uint8_t buffer_[16 * kChunk];
};

} // namespace zep
