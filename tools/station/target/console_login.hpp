// From whatever a console shows to the prompt of a shell.
#pragma once

#include "tools/station/terminal.hpp"

namespace station {

// Longer than a boot loader counts down and a kernel pauses: a key would stop the boot.
constexpr double kBootQuiet = 5;
// Times Access::connect_s, while the board goes on writing.
constexpr double kLongestBoot = 12;

enum class Session {
    none,    // no shell answers
    fresh,   // a shell that does not know the word: it was started since
    present, // the one that was given the word in its variable zs
};
// Asks for the word by a line that only a shell answers. It waits in the terminal where a program runs.
Session ask_session(Terminal& terminal, const std::string& word);

// Waits for a board that starts, logs in, interrupts a program that stands in the way. True when it has logged in.
// Throws std::runtime_error, which begins with `name`, and Broken.
bool reach_shell(Terminal& terminal, const std::string& name, const Access& access);

} // namespace station
