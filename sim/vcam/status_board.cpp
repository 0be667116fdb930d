// The board's part of vcam status: real-time clock, registers, I2C devices, wiring.
#include "sim/vcam/status_board.hpp"
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

std::string json_list(const std::vector<std::string>& words)
{
    std::vector<std::string> quoted;
    for (const auto& w : words) quoted.push_back(json_quote(w));
    return "[" + join(quoted, ",") + "]";
}

std::string board_json(const BoardStatus& board)
{
    std::vector<std::string> words;
    for (const auto& w : board.registers) words.push_back(text("\"0x%08X\":%u", w.address, w.value));
    return text("\"rtc\":%s,\"rtc_faults\":%s,\"registers\":{%s},\"i2c\":%s,\"pins\":%s,",
                json_quote(board.rtc).c_str(), json_quote(board.rtc_faults).c_str(), join(words, ",").c_str(),
                json_list(board.i2c).c_str(), json_list(board.pins).c_str());
}

} // namespace vcam
