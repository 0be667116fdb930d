// The board's part of vcam status: real-time clock, registers, I2C devices, wiring.
#include "sim/view/status_board.hpp"
#include "sim/base/text.hpp"
#include "sim/board/rtc_chip.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace vcam {

BoardStatus read_board(const Camera& camera)
{
    BoardStatus board;
    if (exists(camera.path("rtc"))) {
        const rtc::Chip chip = rtc::load();
        board.rtc = rtc::format(rtc::counted(chip));
        board.rtc_faults = rtc::faults(chip);
    }
    board.registers = registers::all();
    if (exists(camera.path("i2c")))
        for (const auto& entry : std::filesystem::directory_iterator(camera.path("i2c")))
            board.i2c.push_back(entry.path().filename().string());
    std::sort(board.i2c.begin(), board.i2c.end());
    for (const auto& line : split(try_read_file(camera.path("pins")).value_or(""), '\n'))
        if (!line.empty()) board.pins.push_back(line);
    return board;
}

void print_board(const BoardStatus& board)
{
    printf("rtc       %s%s%s\n", board.rtc.empty() ? "not started" : board.rtc.c_str(),
           board.rtc_faults.empty() ? "" : ", ", board.rtc_faults.c_str());
    for (const auto& w : board.registers) printf("register  0x%08X = 0x%08X\n", w.address, w.value);
    for (const auto& name : board.i2c) printf("i2c       0x%s\n", name.c_str());
    for (const auto& line : board.pins) printf("pin       %s\n", line.c_str());
}

void add_board(cli::Json& json, const BoardStatus& board)
{
    json["rtc"] = board.rtc;
    json["rtc_faults"] = board.rtc_faults;
    json["registers"] = cli::Json::object();
    for (const auto& w : board.registers) json["registers"][text("0x%08X", w.address)] = w.value;
    json["i2c"] = board.i2c;
    json["pins"] = board.pins;
}

} // namespace vcam
