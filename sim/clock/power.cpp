// The camera's power: ways to lose it, and what is left then.
#include "sim/clock/power.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam::power {
namespace {

// Blocks until the camera's first process ends the camera.
void stay()
{
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr);
    for (;;) raw::sleep_ns(clock::kSecond);
}

} // namespace

void lose(Loss how, std::string_view cause)
{
    if (clock::mark_power_off()) {
        if (how == Loss::cut) journal::add("power", "cut");
        if (!cause.empty()) raw::append(state::path("cause"), std::string(cause) + "\n");
        if (how == Loss::watchdog) journal::add("watchdog", "reset");
        if (clock::owns_pids()) ::syscall(SYS_kill, 1, SIGRTMIN + int(how));
    }
    if (clock::owns_pids() && raw::pid() != 1) stay();
}

bool on()
{
    if (clock::has_power()) return true;
    if (clock::owns_pids() && raw::pid() != 1) stay();
    return false;
}

} // namespace vcam::power
