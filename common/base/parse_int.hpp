// Decimal text to int, as atoi reads it, with the same result on every target.
#pragma once

#include <cstdint>

namespace zep {

// Skips white space, takes an optional sign and digits, stops at the first other character.
// Text without digits (or null) gives 0; a number beyond int32 gives the nearest int32, where
// atoi itself differs between 32-bit and 64-bit C libraries.
constexpr int32_t parse_int(const char* text)
{
    if (!text) return 0;
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + (*text - '0');
        if (value > INT64_C(0x80000000)) value = INT64_C(0x80000000);
    }
    if (negative) return int32_t(-value);
    return value > INT32_MAX ? INT32_MAX : int32_t(value);
}

} // namespace zep
