// GPIO lines that a test uses: what they were, and that they become so again.
#pragma once

#include "factory/board_guard.hpp"
#include "factory/verdict.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"

#include <cerrno>
#include <cstring>

namespace zep {

// Claims the lines for the test of that name. False when another process has one of them, which is said.
inline bool claim_lines(int fd, std::span<const GpioLine> lines, const char* test)
{
    for (const GpioLine& line : lines)
        if (!claim_board(fd, line.group * int64_t(8) + line.bit, test)) return false;
    return true;
}

class SavedLines {
public:
    // `test` begins the messages.
    SavedLines(int fd, const char* test) : fd_(fd), test_(test) {}
    ~SavedLines() { restore(); }
    SavedLines(const SavedLines&) = delete;
    SavedLines& operator=(const SavedLines&) = delete;

    // False when the driver refuses to read a line's state, or there are too many lines.
    [[nodiscard]] bool save(std::span<const GpioLine> lines)
    {
        for (const GpioLine& line : lines) {
            if (count_ == kMost || save_gpio(fd_, line.group, line.bit, &states_[count_]) < 0) return false;
            ++count_;
        }
        return true;
    }

    // Once, the last one first. False when the driver refuses, which is said for each line.
    bool restore()
    {
        bool done = true;
        while (count_ > 0) {
            const GPIO_STATE_S& state = states_[--count_];
            if (restore_gpio(fd_, &state) == 0) continue;
            warn("%s: line %d.%d could not be put back : %s", test_, state.group, state.bit, strerror(errno));
            done = false;
        }
        return done;
    }

private:
    static constexpr size_t kMost = 2 * kMaxLines;
    int fd_;
    const char* test_;
    GPIO_STATE_S states_[kMost];
    size_t count_ = 0;
};

} // namespace zep
