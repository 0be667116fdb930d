// Waits of the tests that change hardware settings, and the signals that end them.
#include "factory/waiting.hpp"

#include "common/base/monotonic.hpp"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace zep {

namespace {

constexpr int64_t kSliceMs = 100; // a signal just before the sleep is seen after it
constinit volatile sig_atomic_t came = 0;

void note_signal(int number) { came = number; }

} // namespace

Interruptible::Interruptible()
{
    came = 0;
    struct sigaction action = {};
    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART; // requests to the drivers go on; a sleep never does
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &action, &before_[i]);
}

Interruptible::~Interruptible()
{
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &before_[i], nullptr);
    if (!came) return;
    fflush(stdout);
    raise(int(came));
}

bool Interruptible::pause_ms(int64_t ms)
{
    const int64_t end = monotonic_ms() + ms;
    for (int64_t left = ms; left > 0 && !came; left = end - monotonic_ms()) {
        const int64_t slice = std::min(left, kSliceMs);
        const timespec length = {0, long(slice * 1'000'000)};
        nanosleep(&length, nullptr);
    }
    return !came;
}

} // namespace zep
