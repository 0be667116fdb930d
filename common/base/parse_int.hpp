// Decimal text to int, as atoi reads it, with the same result on every target.
#pragma once

#include <cstdint>

namespace zep {

// Skips white space, takes an optional sign and digits, stops at the first other character.
// Text without digits (or null) gives 0; a number beyond int32 gives the nearest int32, where
// atoi itself differs between 32-bit and 64-bit C libraries.
int32_t parse_int(const char* text);

} // namespace zep
