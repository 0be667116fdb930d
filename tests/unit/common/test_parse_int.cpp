// Decimal numbers as atoi reads them, and those of digits alone.
#include "common/base/parse_int.hpp"
#include "common/cutil_conf.h"

#include <gtest/gtest.h>

TEST(ParseInt, ReadsAsAtoiDoesAndClampsWhereAtoiDiffersBetweenTargets)
{
    const struct {
        const char* text;
        int32_t value, digits;
    } cases[] = {{nullptr, 0, -1},
                 {"", 0, 0},
                 {"0", 0, 0},
                 {"42", 42, 42},
                 {"12a", 12, -1},
                 {" \t42x", 42, -1},
                 {"1 ", 1, -1},
                 {"-7", -7, -1},
                 {"+8", 8, -1},
                 {"- 8", 0, -1},
                 {"2147483647", INT32_MAX, INT32_MAX},
                 {"2147483648", INT32_MAX, INT32_MAX},
                 {"99999999999999999999", INT32_MAX, INT32_MAX},
                 {"-2147483648", INT32_MIN, -1},
                 {"-99999999999999999999", INT32_MIN, -1}};
    for (const auto& c : cases) {
        EXPECT_EQ(zep::parse_int(c.text), c.value) << (c.text ? c.text : "null");
        EXPECT_EQ(CUTIL_AtoiDigits(c.text), c.digits) << (c.text ? c.text : "null");
    }
}
