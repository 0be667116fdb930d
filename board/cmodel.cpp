// Model classes: one ordered list a function, the first match wins.
#include "board/cmodel.h"

#include "common/cutil_conf.h"

#include <cstring>
#include <span>

namespace {

struct Row {
    const char* model;
    uint32_t result;
};

// A code may stand once in a list: a second row would be dead.
consteval bool codes_unique(std::span<const Row> rows)
{
    for (size_t a = 0; a < rows.size(); ++a)
        for (size_t b = a + 1; b < rows.size(); ++b)
            if (__builtin_strcmp(rows[a].model, rows[b].model) == 0) return false;
    return true;
}

// clang-format off
constexpr Row kLine[] = {
    {"ZM101", 0}, {"ZM102", 0}, {"ZM103", 0}, {"ZM104", 0},
    {"ZM105", 1},
    {"ZM106", 2}, {"ZM107", 2}, {"ZM108", 2}, {"ZM109", 2}, {"ZM110", 2},
    {"ZM111", 3},
    {"ZM112", 4}, {"ZM113", 4},
    {"ZM114", 5}, {"ZM115", 5}, {"ZM116", 5}, {"ZM117", 5}, {"ZM118", 5}, {"ZM119", 5},
    {"ZM120", 6},
    {"ZM121", 7},
};
constexpr Row kSetOne[] = {{"ZM122", 1}, {"ZM123", 1}, {"ZM124", 1}, {"ZM125", 1}};
constexpr Row kSetTwo[] = {{"ZM126", 1}, {"ZM127", 1}};
constexpr Row kSetThree[] = {{"ZM128", 1}, {"ZM116", 1}, {"ZM129", 1}};
constexpr Row kSetFour[] = {{"ZM136", 1}, {"ZM137", 1}, {"ZM138", 1}, {"ZM104", 1}, {"ZM118", 1}, {"ZM119", 1}};
constexpr Row kNotSetFive[] = {{"ZM139", 0}};
constexpr Row kSetSix[] = {{"ZM132", 1}, {"ZM133", 1}, {"ZM134", 1}};
constexpr Row kOutsideSetSeven[] = {
    {"ZM140", 0}, {"ZM141", 0}, {"ZM136", 0}, {"ZM142", 0}, {"ZM143", 0},
    {"ZM137", 0}, {"ZM138", 0}, {"ZM104", 0}, {"ZM118", 0}, {"ZM119", 0},
    {"ZM139", 0}, {"ZM132", 0}, {"ZM133", 0}, {"ZM134", 0}, {"ZM135", 0},
};
constexpr Row kPlatform[] = {
    {"ZM130", 2}, {"ZM131", 2}, {"ZM132", 2}, {"ZM133", 2}, {"ZM134", 2}, {"ZM135", 2},
};
constexpr Row kSetEight[] = {
    {"ZM136", 1}, {"ZM142", 1}, {"ZM137", 1}, {"ZM138", 1}, {"ZM104", 1},
    {"ZM118", 1}, {"ZM119", 1}, {"ZM143", 1}, {"ZM139", 1},
    {"ZM134", 3}, {"ZM133", 3}, {"ZM135", 3},
    {"ZM132", 2},
};
constexpr Row kChannels[] = {
    {"ZM144", 4}, {"ZM102", 4}, {"ZM105", 4}, {"ZM113", 4}, {"ZM131", 4}, {"ZM145", 4},
};
// ZM130 and ZM135 are on no row although their generation's others are: they take the default.
constexpr Row kModelBit[] = {
    {"ZM144", 0x2}, {"ZM145", 0x2},
    {"ZM146", 0x1},
    {"ZM105", 0x1000},
    {"ZM147", 0x4},
    {"ZM148", 0x8}, {"ZM103", 0x8},
    {"ZM149", 0x40},
    {"ZM129", 0x4000},
    {"ZM150", 0x100},
    {"ZM128", 0x8000},
    {"ZM151", 0x200},
    {"ZM136", 0x400},
    {"ZM137", 0x800}, {"ZM104", 0x800},
    {"ZM111", 0x1},
    {"ZM114", 0x4},
    {"ZM115", 0x8},
    {"ZM116", 0x8000},
    {"ZM118", 0x400},
    {"ZM119", 0x800},
    {"ZM117", 0x1},
    {"ZM102", 0x2},
    {"ZM101", 0x1}, {"ZM109", 0x1}, {"ZM120", 0x1}, {"ZM152", 0x1},
    {"ZM142", 0x400},
    {"ZM153", 0x1}, {"ZM110", 0x1},
    {"ZM106", 0x4},
    {"ZM107", 0x8},
    {"ZM108", 0x1},
    {"ZM134", 0x40000}, {"ZM132", 0x40000}, {"ZM133", 0x40000},
    {"ZM131", 0x2},
};
constexpr Row kGpioSpi[] = {{"ZM135", 1}, {"ZM154", 1}};
// clang-format on

static_assert(codes_unique(kLine) && codes_unique(kSetOne) && codes_unique(kSetTwo) &&
              codes_unique(kSetThree) && codes_unique(kSetFour) && codes_unique(kSetSix) &&
              codes_unique(kOutsideSetSeven) && codes_unique(kPlatform) && codes_unique(kSetEight) &&
              codes_unique(kChannels) && codes_unique(kModelBit) && codes_unique(kGpioSpi));

uint32_t classify(std::span<const Row> rows, const char* model, uint32_t otherwise)
{
    if (!model) return otherwise;
    for (const Row& row : rows)
        if (strcmp(row.model, model) == 0) return row.result;
    return otherwise;
}

} // namespace

void CMODEL_GetCode(char* code)
{
    if (CUTIL_GetConfValue("/etc/cam_model.conf", "cam_model", code) < 0) strcpy(code, "ZM146");
}

uint32_t CMODEL_GetLine(const char* model) { return classify(kLine, model, 0); }
uint32_t CMODEL_InSetOne(const char* model) { return classify(kSetOne, model, 0); }
uint32_t CMODEL_InSetTwo(const char* model) { return classify(kSetTwo, model, 0); }
uint32_t CMODEL_InSetThree(const char* model) { return classify(kSetThree, model, 0); }
uint32_t CMODEL_InSetFour(const char* model) { return classify(kSetFour, model, 0); }
uint32_t CMODEL_InSetSix(const char* model) { return classify(kSetSix, model, 0); }
uint32_t CMODEL_IsNotSetFive(const char* model) { return classify(kNotSetFive, model, 1); }
uint32_t CMODEL_OutsideSetSeven(const char* model) { return classify(kOutsideSetSeven, model, 1); }
uint32_t CMODEL_GetPlatform(const char* model) { return classify(kPlatform, model, 0); }
uint32_t CMODEL_GetSetEightCode(const char* model) { return classify(kSetEight, model, 0); }
uint32_t CMODEL_GetChannelCount(const char* model) { return classify(kChannels, model, 1); }
uint32_t CMODEL_GetModelBit(const char* model) { return classify(kModelBit, model, 0x1); }

uint32_t CMODEL_UsesGpioSpi(const char* model, char* device)
{
    if (!classify(kGpioSpi, model, 0)) return 0;
    if (device) memcpy(device, "/dev/gpiospi", CMODEL_GPIOSPI_SIZE);
    return 1;
}
