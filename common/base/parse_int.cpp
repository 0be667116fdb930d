// Decimal text to int with clamping.
#include "common/base/parse_int.hpp"

namespace zep {

int32_t parse_int(const char* text)
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
