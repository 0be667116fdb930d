// Scrambling of service users' passwords. It only hides them from a glance.
#include "common/users/user_block.hpp"

#include "common/base/bytes.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/random.h>

namespace zep {

namespace {

constexpr size_t kPasswordAt = 16;

int digit_value(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

void toggle(UserBlock& block)
{
    for (size_t i = 2; i < block.size(); ++i) block[i] ^= block[0];
}

} // namespace

UserBlock scramble_password(const char* password)
{
    UserBlock block = {};
    srandom(unsigned(time(nullptr)));
    store_le16(block.data(), uint16_t(random()));
    // The filler makes two saves within one second differ.
    if (getrandom(&block[2], kPasswordAt - 2, GRND_NONBLOCK) < 0)
        for (size_t i = 2; i < kPasswordAt; ++i) block[i] = uint8_t(random());
    memcpy(&block[kPasswordAt], password, strnlen(password, kUserPasswordSize - 1));
    toggle(block);
    std::reverse(block.begin(), block.end());
    return block;
}

void unscramble_password(const UserBlock& scrambled, char* password)
{
    UserBlock block = scrambled;
    std::reverse(block.begin(), block.end());
    toggle(block);
    memcpy(password, &block[kPasswordAt], kUserPasswordSize);
    password[kUserPasswordSize] = '\0';
}

void user_block_to_hex(const UserBlock& block, char* hex)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    for (uint8_t byte : block) {
        *hex++ = kDigits[byte >> 4];
        *hex++ = kDigits[byte & 15];
    }
    *hex = '\0';
}

bool user_block_from_hex(const char* hex, UserBlock& block)
{
    if (strlen(hex) != 2 * block.size()) return false;
    for (size_t i = 0; i < block.size(); ++i) {
        int high = digit_value(hex[2 * i]);
        int low = digit_value(hex[2 * i + 1]);
        if (high < 0 || low < 0) return false;
        block[i] = uint8_t(high << 4 | low);
    }
    return true;
}

} // namespace zep
