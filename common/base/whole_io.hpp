// Transfers that go on until all bytes are through.
#pragma once

#include <cstddef>

namespace zep {

// The number of bytes read: fewer than size at the end of the file, which leaves errno as it is, or after an error,
// which sets it.
size_t read_fully(int fd, void* buffer, size_t size);

// False with errno; ENOSPC for what takes nothing, which would be asked for ever.
bool write_fully(int fd, const void* buffer, size_t size);

} // namespace zep
