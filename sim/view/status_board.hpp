// The board's part of vcam status: real-time clock, registers, I2C devices, wiring.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/board/registers.hpp"
#include "tools/cli/json.hpp"

namespace vcam {

struct BoardStatus {
    std::string rtc, rtc_faults; // empty before the first run
    std::vector<registers::Word> registers;
    std::vector<std::string> i2c;  // "20"
    std::vector<std::string> pins; // the plan's lines
};

// The state folder is the camera's already.
BoardStatus read_board(const Camera& camera);
void print_board(const BoardStatus& board);
void add_board(cli::Json& json, const BoardStatus& board);

} // namespace vcam
