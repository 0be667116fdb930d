// The scrambled form of a service user's password.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zep {

constexpr size_t kUserBlockSize = 32;
constexpr size_t kUserPasswordSize = 16; // in the block, with a terminator when there is room
using UserBlock = std::array<uint8_t, kUserBlockSize>;

// Bytes 0 and 1 are the random value, 2 to 15 filler, 16 on the password. A password of 16 characters or more
// is cut to 15: the block has room for no more.
UserBlock scramble_password(const char* password);

// The password of a block, terminated; `password` holds kUserPasswordSize + 1 bytes.
void unscramble_password(const UserBlock& block, char* password);

// 64 upper-case digits and a terminator.
void user_block_to_hex(const UserBlock& block, char* hex);

// False unless the text is exactly 64 hexadecimal digits.
bool user_block_from_hex(const char* hex, UserBlock& block);

} // namespace zep
