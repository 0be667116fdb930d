// The lines of the service users' file.
#pragma once

#include "common/usertable.h"

#include <cstddef>

namespace zep {

constexpr size_t kUserLine = 256;

// Appends the users of an open file to the table until it is full; lines that are none are skipped. False on
// a read error.
bool read_users(int fd, USERTABLE_S& table);

// Whether text that must end within `size` bytes holds nothing that would break a line.
bool fits_user_line(const char* text, size_t size);

// The line of an entry whose name fits, its password scrambled afresh. Returns its length.
size_t user_line(const USERTABLE_ENTRY_S& entry, char (&line)[kUserLine]);

} // namespace zep
