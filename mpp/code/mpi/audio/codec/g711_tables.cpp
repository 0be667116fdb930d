// G.711 octet tables: decoding by the decision and output values of Recommendation ITU-T G.711, and the
// direct conversions between the laws as its tables 3 and 4 list them.
#include "mpi/audio/g711.h"

namespace {

constexpr int16_t expand_a(int octet)
{
    const int code = octet ^ 0x55;
    const int segment = (code >> 4) & 7;
    const int step = ((code & 15) << 4) + 8;
    const int magnitude = segment == 0 ? step : (step + 256) << (segment - 1);
    return int16_t(code & 0x80 ? magnitude : -magnitude);
}

constexpr int16_t expand_u(int octet)
{
    const int code = ~octet & 0xff;
    const int magnitude = ((((code & 15) << 3) + 132) << ((code >> 4) & 7)) - 132;
    return int16_t(code & 0x80 ? -magnitude : magnitude);
}

// A-law output value (1 to 128) for each mu-law output value (0 to 127).
constexpr uint8_t kUtoA[128] = {
    1,   1,   2,   2,   3,   3,   4,   4,   5,   5,   6,   6,   7,   7,   8,   8,   9,   10,  11,
    12,  13,  14,  15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  27,  29,  31,  33,  34,
    35,  36,  37,  38,  39,  40,  41,  42,  43,  44,  46,  48,  49,  50,  51,  52,  53,  54,  55,
    56,  57,  58,  59,  60,  61,  62,  64,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,
    76,  77,  78,  79,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,  92,  93,  94,  95,
    96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114,
    115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128,
};

// mu-law output value (0 to 127) for each A-law output value (1 to 128, less 1).
constexpr uint8_t kAtoU[128] = {
    1,   3,   5,   7,   9,   11,  13,  15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  26,
    27,  28,  29,  30,  31,  32,  32,  33,  33,  34,  34,  35,  35,  36,  37,  38,  39,  40,  41,
    42,  43,  44,  45,  46,  47,  48,  48,  49,  49,  50,  51,  52,  53,  54,  55,  56,  57,  58,
    59,  60,  61,  62,  63,  64,  64,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,  76,
    77,  78,  79,  79,  80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,  92,  93,  94,
    95,  96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113,
    114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127,
};

constexpr uint8_t a_to_u(int octet)
{
    const int value = kAtoU[(octet ^ 0x55) & 0x7f];
    return uint8_t(octet & 0x80 ? 0xff ^ value : 0x7f ^ value);
}

constexpr uint8_t u_to_a(int octet)
{
    const int code = kUtoA[~octet & 0x7f] - 1;
    return uint8_t(octet & 0x80 ? 0xd5 ^ code : 0x55 ^ code);
}

} // namespace

#define ROW_OF_8(F, n)                                                                                       \
    F(n), F((n) + 1), F((n) + 2), F((n) + 3), F((n) + 4), F((n) + 5), F((n) + 6), F((n) + 7)
#define ROW_OF_64(F, n)                                                                                      \
    ROW_OF_8(F, n), ROW_OF_8(F, (n) + 8), ROW_OF_8(F, (n) + 16), ROW_OF_8(F, (n) + 24),                      \
        ROW_OF_8(F, (n) + 32), ROW_OF_8(F, (n) + 40), ROW_OF_8(F, (n) + 48), ROW_OF_8(F, (n) + 56)
#define EVERY_OCTET(F) ROW_OF_64(F, 0), ROW_OF_64(F, 64), ROW_OF_64(F, 128), ROW_OF_64(F, 192)

constinit const int16_t a2l_table[256] = {EVERY_OCTET(expand_a)};
constinit const int16_t u2l_table[256] = {EVERY_OCTET(expand_u)};
constinit const uint8_t a2u_table[256] = {EVERY_OCTET(a_to_u)};
constinit const uint8_t u2a_table[256] = {EVERY_OCTET(u_to_a)};
