// load_drv: inserts the driver modules and sets the registers that the camera model needs.
#include "board/applets.h"
#include "board/cmodel.h"

#include "common/base/shell.hpp"

#include <cstdio>
#include <cstring>

namespace {

constexpr char kDrivers[] = "/dvs/extdrv";
constexpr char kRegTool[] = "/bin/reg";

// A step is a module of the driver folder, or "-s ..." / "-c ...": bits of a register set or cleared,
// in the spelling that the register tool gets. A list ends with null.
//
// The addresses are those of the chip's register map. A GPIO bank has its direction register at base + 0x400, bit
// set for an output; line N is read and written at base + ((1 << N) << 2), so that one access touches one line. The
// masks are those of the maker's start-up scripts for each board, digit for digit: other scripts compare the lines.
using Steps = const char* const*;

constexpr const char* kNone[] = {nullptr};
constexpr const char* kZm150[] = {"tw_9910", nullptr};
constexpr const char* kZm112[] = {"tw_9910", "tlv_320", "ise_2010", "hiusb", nullptr};
constexpr const char* kZm142[] = {"tlv_320", "ov_2643", nullptr};
constexpr const char* kZm143[] = {"tlv_320", "ov_2643", "ds_1339", nullptr};
constexpr const char* kZm138[] = {"tw_9910", "tlv_320", nullptr};
constexpr const char* kZm140[] = {"tw_9910", "tlv_320", "ds_1339", nullptr};
constexpr const char* kZm141[] = {
    "tw_9910",
    "tlv_320",
    "-c 0x101E0020 0x00100000", // pin multiplexing: bit 20 clear makes the pin line 1 of bank 0x101E5000
    "-s 0x101E5400 0x00000002", // line 1 is an output
    "-c 0x101E5008 0x00000002", // and low
    nullptr,
};
constexpr const char* kFirstGeneration[] = {"tw_9910", "tlv_320", "ise_2010", nullptr};
constexpr const char* kFourChannels[] = {"tw_2864", "ise_2010", nullptr};
constexpr const char* kFourChannelsUsb[] = {"tw_2864", "ise_2010", "hiusb", nullptr};

constexpr const char* kSecondGeneration[] = {
    "-c 0x20110094 0x00000001", // as the maker's script has it; what these two bits switch is not recorded
    "-c 0x20110270 0x00000004",
    "ds_1339",
    nullptr,
};
constexpr const char* kZm131[] = {"tw_2864", nullptr};
constexpr const char* kZm135[] = {
    "-s 0x200F009C 0x01", // pin multiplexing: line 2 of bank 0x20150000
    "-s 0x20150400 0x04", // an output
    "-c 0x20150010 0x04", // and low
    "-s 0x200F00A0 0x01", // the same for line 3
    "-s 0x20150400 0x08", //
    "-c 0x20150020 0x08", //
    "-c 0x200F00A4 0x01", // line 4: cleared, unlike the other two pins, as the maker's script has it
    "-s 0x20150400 0x10", //
    "-c 0x20150040 0x10", //
    "gv_7601",
    "tlv_320",
    nullptr,
};
constexpr const char* kAudioOnly[] = {"tlv_320", nullptr};

struct Row {
    const char* model;
    Steps steps;
};

constexpr Row kFirstRows[] = {
    {"ZM150", kZm150}, {"ZM112", kZm112}, {"ZM142", kZm142}, {"ZM143", kZm143},
    {"ZM139", kNone},  {"ZM140", kZm140}, {"ZM141", kZm141}, {"ZM138", kZm138},
};
constexpr Row kFourRows[] = {{"ZM113", kFourChannelsUsb}};
constexpr Row kSecondRows[] = {{"ZM131", kZm131}, {"ZM135", kZm135}};

template<size_t N> Steps find(const Row (&rows)[N], const char* model, Steps otherwise)
{
    for (const Row& row : rows)
        if (strcmp(row.model, model) == 0) return row.steps;
    return otherwise;
}

void run_steps(Steps steps)
{
    for (; *steps; ++steps) {
        char line[128];
        if (**steps == '-')
            snprintf(line, sizeof line, "%s %s", kRegTool, *steps);
        else
            snprintf(line, sizeof line, "/sbin/insmod %s/%s.ko", kDrivers, *steps);
        zep::run_shell(line);
    }
}

void load_first_generation(const char* model)
{
    zep::run_shell("/sbin/insmod /dvs/Hi3512reg.ko");
    if (CMODEL_GetChannelCount(model) == 4)
        run_steps(find(kFourRows, model, kFourChannels));
    else
        run_steps(find(kFirstRows, model, kFirstGeneration));
}

void load_second_generation(const char* model)
{
    run_steps(kSecondGeneration);
    run_steps(find(kSecondRows, model, kAudioOnly));
}

} // namespace

int load_drv_main(int, char**)
{
    char model[CMODEL_CODE_SIZE];
    CMODEL_GetCode(model);
    if (CMODEL_GetPlatform(model) == 2)
        load_second_generation(model);
    else
        load_first_generation(model);
    return 0;
}
