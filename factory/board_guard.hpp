// Waits of the tests that change hardware settings, and the signals that end them.
#pragma once

#include <csignal>
#include <cstdint>

namespace zep {

// While it lives, SIGINT, SIGTERM and SIGHUP only end pauses, so that the test can put the hardware back; at
// the end of its life a signal that came ends the process. One at a time.
class Interruptible {
public:
    Interruptible();
    ~Interruptible();
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

    // False when a signal came before it was over; later pauses then are none.
    static bool pause_ms(int64_t ms);

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction before_[3];
};

} // namespace zep
