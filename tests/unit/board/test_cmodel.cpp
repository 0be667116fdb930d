#include "board/cmodel.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>

namespace {

// One string a function, one character a model from ZM101 to ZM154, written down from the product list and
// not from the source's rows: '.' stands for the default.
struct Expectation {
    const char* name;
    uint32_t (*function)(const char*);
    uint32_t otherwise;
    //               0........1.........2.........3.........4.........5....
    //               123456789012345678901234567890123456789012345678901234
    const char* by_model;
    uint32_t values[8];
};

uint32_t gpio_spi(const char* model) { return CMODEL_UsesGpioSpi(model, nullptr); }

// clang-format off
constexpr Expectation kExpectations[] = {
    {"line",
     CMODEL_GetLine,
     0,
     "....12222234455555567.................................",
     {0, 1, 2, 3, 4, 5, 6, 7}},
    {"one", CMODEL_InSetOne, 0, ".....................1111.............................", {0, 1}},
    {"two", CMODEL_InSetTwo, 0, ".........................11...........................", {0, 1}},
    {"three", CMODEL_InSetThree, 0, "...............1...........11.........................", {0, 1}},
    {"four", CMODEL_InSetFour, 0, "...1.............11................111................", {0, 1}},
    {"not five", CMODEL_IsNotSetFive, 1, "......................................0...............", {0, 1}},
    {"six", CMODEL_InSetSix, 0, "...............................111....................", {0, 1}},
    {"outside seven",
     CMODEL_OutsideSetSeven,
     1,
     "...0.............00............000000000000...........",
     {0, 1}},
    {"platform", CMODEL_GetPlatform, 0, ".............................222222...................", {0, 1, 2}},
    {"eight",
     CMODEL_GetSetEightCode,
     0,
     "...1.............11............23331111..11...........",
     {0, 1, 2, 3}},
    {"channels",
     CMODEL_GetChannelCount,
     1,
     ".4..4.......4.................4............44.........",
     {0, 1, 2, 3, 4}},
    {"gpio spi", gpio_spi, 0, "..................................1..................1", {0, 1}},
};
// clang-format on

std::string code(int i) { return "ZM" + std::to_string(101 + i); }

} // namespace

TEST(Models, EveryFunctionAnswersForAllFiftyFourCodes)
{
    for (const Expectation& e : kExpectations) {
        ASSERT_EQ(strlen(e.by_model), 54u) << e.name;
        for (int i = 0; i < 54; ++i) {
            uint32_t wanted = e.by_model[i] == '.' ? e.otherwise : e.values[e.by_model[i] - '0'];
            EXPECT_EQ(e.function(code(i).c_str()), wanted) << e.name << " " << code(i);
        }
    }
}

TEST(Models, ModelBitsByBitWithTheirSharers)
{
    // The bit's exponent by model, ZM101 first.
    constexpr int kExponents[54] = {
        0, 1,  3,  11, 12, 2,  3,  0,  0,  0, // 101..110
        0, 0,  0,  2,  3,  15, 0,  10, 11, 0, // 111..120
        0, 0,  0,  0,  0,  0,  0,  15, 14, 0, // 121..130
        1, 18, 18, 18, 0,  10, 11, 0,  0,  0, // 131..140
        0, 10, 0,  1,  1,  0,  2,  3,  6,  8, // 141..150
        9, 0,  0,  0,                         // 151..154
    };
    for (int i = 0; i < 54; ++i)
        EXPECT_EQ(CMODEL_GetModelBit(code(i).c_str()), 1u << kExponents[i]) << code(i);
}

TEST(Models, CodesAreComparedWholeAndCaseSensitively)
{
    for (const char* unknown : {"", "zm131", "ZM131 ", " ZM131", "ZM1310", "ZM13", "ZM155", "ZM100",
                                static_cast<const char*>(nullptr)}) {
        for (const Expectation& e : kExpectations) EXPECT_EQ(e.function(unknown), e.otherwise) << e.name;
        EXPECT_EQ(CMODEL_GetModelBit(unknown), 1u);
    }
}

TEST(Models, GpioSpiNamesItsDeviceOnlyForItsTwoModels)
{
    char device[16];
    memset(device, 'x', sizeof device);
    EXPECT_EQ(CMODEL_UsesGpioSpi("ZM146", device), 0u);
    EXPECT_EQ(device[0], 'x');
    EXPECT_EQ(CMODEL_UsesGpioSpi("ZM154", device), 1u);
    EXPECT_EQ(memcmp(device, "/dev/gpiospi\0xxx", 16), 0);
}
