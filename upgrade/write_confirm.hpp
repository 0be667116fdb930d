// Copying and comparing a range of a package file that is open already.
#pragma once

#include <cstdint>

namespace zep {

struct FileRange {
    const char* path; // named in messages
    int fd;           // the open file; -1: opened by its path for this one pass
    int64_t offset;
    uint32_t size;
};

// CFlash_NWrite and CFlash_Confirm on a range. A caller that keeps the descriptor writes the
// very file that it checked, whatever happens to the path meanwhile. -1 sets errno; a difference is EIO.
int write_range(const FileRange& range, const char* device);
int confirm_range(const FileRange& range, const char* device);

} // namespace zep
