#include "board/cmodel.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>

namespace {

uint32_t gpio_spi(const char* model) { return CMODEL_UsesGpioSpi(model, nullptr); }
// The exponent; 99 for a word that is not one bit.
uint32_t model_bit(const char* model)
{
    const uint32_t bit = CMODEL_GetModelBit(model);
    return std::has_single_bit(bit) ? uint32_t(std::countr_zero(bit)) : 99;
}

// One string a function, one character a model from ZM101 to ZM154, written down from the product list and
// not from the source's rows: '.' stands for the default, 'a' for 10.
// clang-format off
const struct {
    const char* name;
    uint32_t (*function)(const char*);
    uint32_t otherwise;
    const char* by_model;
} kExpectations[] = {
    //                                       0........1.........2.........3.........4.........5....
    //                                       123456789012345678901234567890123456789012345678901234
    {"line", CMODEL_GetLine, 0,             "....12222234455555567................................."},
    {"one", CMODEL_InSetOne, 0,             ".....................1111............................."},
    {"two", CMODEL_InSetTwo, 0,             ".........................11..........................."},
    {"three", CMODEL_InSetThree, 0,         "...............1...........11........................."},
    {"four", CMODEL_InSetFour, 0,           "...1.............11................111................"},
    {"five", CMODEL_IsNotSetFive, 1,        "......................................0..............."},
    {"six", CMODEL_InSetSix, 0,             "...............................111...................."},
    {"7", CMODEL_OutsideSetSeven, 1,        "...0.............00............000000000000..........."},
    {"8", CMODEL_GetSetEightCode, 0,        "...1.............11............23331111..11..........."},
    {"platform", CMODEL_GetPlatform, 0,     ".............................222222..................."},
    {"channels", CMODEL_GetChannelCount, 1, ".4..4.......4.................4............44........."},
    {"gpio spi", gpio_spi, 0,               "..................................1..................1"},
    {"bit", model_bit, 0,                   ".13bc23......23f.ab........fe.1iii.ab....a.11.23689..."},
};
// clang-format on

} // namespace

TEST(Models, EveryFunctionAnswersForAllFiftyFourCodes)
{
    for (const auto& e : kExpectations) {
        ASSERT_EQ(strlen(e.by_model), 54u) << e.name;
        for (int i = 0; i < 54; ++i) {
            const char c = e.by_model[i];
            const uint32_t wanted = c == '.' ? e.otherwise : uint32_t(c >= 'a' ? c - 'a' + 10 : c - '0');
            const std::string code = "ZM" + std::to_string(101 + i);
            EXPECT_EQ(e.function(code.c_str()), wanted) << e.name << " " << code;
        }
    }
}

TEST(Models, CodesAreComparedWholeAndCaseSensitively)
{
    for (const char* unknown : {"", "zm131", "ZM131 ", " ZM131", "ZM1310", "ZM13", "ZM155", "ZM100",
                                static_cast<const char*>(nullptr)})
        for (const auto& e : kExpectations) EXPECT_EQ(e.function(unknown), e.otherwise) << e.name;
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
