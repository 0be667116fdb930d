// Copying and comparing a stretch of a package file that is open already.
#pragma once

#include <cstdint>

namespace zep {

struct Stretch {
    const char* path; // named in messages
    int fd;           // the open file; -1: opened by its path for this one pass
    int64_t offset;
    uint32_t size;
};

// CFlash_NWrite and CFlash_Confirm on a stretch. A caller that keeps the descriptor writes the
// very file that it checked, whatever happens to the path meanwhile.
int write_stretch(const Stretch& stretch, const char* device);
int confirm_stretch(const Stretch& stretch, const char* device);

} // namespace zep
