// GPIO lines that a test uses: what they were, and that they become so again.
#pragma once

#include "factory/wiring.hpp"

#include "board/gpio.h"

namespace zep {

class SavedLines {
public:
    explicit SavedLines(int fd) : fd_(fd) {}
    ~SavedLines() { restore(); }
    SavedLines(const SavedLines&) = delete;
    SavedLines& operator=(const SavedLines&) = delete;

    // False when the driver refuses to say how a line stands, or there are too many.
    [[nodiscard]] bool save(std::span<const Line> lines)
    {
        for (const Line& line : lines) {
            if (count_ == kMost || save_gpio(fd_, line.group, line.bit, &states_[count_]) < 0) return false;
            ++count_;
        }
        return true;
    }
    // Once; false when the driver refuses.
    bool restore()
    {
        bool done = true;
        while (count_ > 0) done &= restore_gpio(fd_, &states_[--count_]) == 0;
        return done;
    }

private:
    static constexpr size_t kMost = 2 * kMaxLines;
    int fd_;
    GPIO_STATE_S states_[kMost];
    size_t count_ = 0;
};

} // namespace zep
