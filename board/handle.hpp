// Descriptors as the board's functions hand them out and take them back.
#pragma once

namespace zep {

// The device's descriptor, or -1, reported in the function's name.
int open_handle(const char* function, const char* device);

// Reports a descriptor that none of them can have given.
bool invalid_handle(const char* function, int fd);

} // namespace zep
