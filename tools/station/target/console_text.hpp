// The text of a console: what is typed, and the frames in which a board answers.
#pragma once

#include "tools/station/target/target.hpp"

#include <cstdint>
#include <optional>

namespace station {

// The words as a shell takes them, with as few characters more as can be: each is typed.
std::string typed(const Words& words);
// Eight random hexadecimal digits: no program's output holds them by chance.
std::string random_word();

// Checksum and length as the program cksum of POSIX prints them.
std::string posix_cksum(std::string_view bytes);

// What the board wrote between <KEY:o> and <KEY:RUN:STATUS:SUM>.
struct Frame {
    std::string body; // line ends as the program wrote them
    std::string run;  // key of the last program that was started
    std::string status;
    std::string sum; // of the line RUN:STATUS and the body; empty where the board has no cksum
    bool begun = false;
    [[nodiscard]] bool intact() const;
    bool operator==(const Frame&) const = default;
};
// Nothing as long as the frame's end is missing.
std::optional<Frame> find_frame(std::string_view text, const std::string& key);
// A terminal sends a new line as CR LF, a CR before it as itself: one CR less is what the program wrote.
std::string without_terminal(std::string_view text);
// Of a frame's text so far: the body up to where its end may have begun.
std::string_view body_so_far(std::string_view text, const std::string& key);

// Without line ends and escape sequences, which a shell's line editor adds.
std::string unedited(std::string_view text);

// What the last line of a console is.
enum class Prompt { other, login, password };
Prompt prompt_of(std::string_view text);
// Whether a boot loader's or kernel's first lines are in it.
bool shows_boot(std::string_view text);

} // namespace station
