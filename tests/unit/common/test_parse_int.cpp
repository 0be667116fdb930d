// Decimal numbers as atoi reads them.
#include "common/base/parse_int.hpp"

#include <gtest/gtest.h>

TEST(ParseInt, ReadsAsAtoiDoesAndClampsWhereAtoiDiffersBetweenTargets)
{
    const struct {
        const char* text;
        int32_t value;
    } cases[] = {
        {"", 0},
        {"abc", 0},
        {" \t42x", 42},
        {"-7", -7},
        {"+8", 8},
        {"- 8", 0},
        {"2147483647", INT32_MAX},
        {"2147483648", INT32_MAX},
        {"99999999999999999999", INT32_MAX},
        {"-2147483648", INT32_MIN},
        {"-99999999999999999999", INT32_MIN},
        {nullptr, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(zep::parse_int(c.text), c.value) << (c.text ? c.text : "null");
}
