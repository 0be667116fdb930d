// The watchdog's timer.
#include "sim/clock/watchdog_timer.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/clock/power.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <sys/file.h>

namespace vcam::watchdog {
namespace {

constexpr int32_t kOff = 0, kRunning = 1, kFired = 2;

void log(const std::string& text) { journal::add_to("watchdog.log", "watchdog", text); }

void tell(const std::string& text)
{
    log(text);
    journal::add("watchdog", text);
}

void restart(clock::WatchdogState& w, int64_t now)
{
    w.last_feed_ns = now;
    w.deadline_ns = now + w.timeout_units * kUnit;
}

void end_gap(clock::WatchdogState& w, int64_t now)
{
    const int64_t gap = now - w.last_feed_ns;
    for (int64_t longest = w.longest_gap_ns; gap > longest;)
        if (w.longest_gap_ns.compare_exchange_weak(longest, gap)) break;
}

bool held()
{
    const raw::Fd fd(raw::open(state::path("dev/watchdog").c_str(), O_RDONLY | O_CLOEXEC));
    return fd && raw::flock(fd.get(), LOCK_EX | LOCK_NB) != 0;
}

} // namespace

void arm()
{
    clock::WatchdogState* w = clock::watchdog();
    if (!w) return;
    const int64_t now = clock::now_ns();
    if (w->armed == kRunning) end_gap(*w, now); // it was left running by an earlier holder
    if (w->timeout_units == 0) w->timeout_units = kDefaultUnits;
    w->magic = 0;
    restart(*w, now);
    w->armed = kRunning;
    tell("open, timeout " + std::to_string(w->timeout_units));
}

void feed(bool magic)
{
    clock::WatchdogState* w = clock::watchdog();
    if (!w || w->armed != kRunning) return;
    const int64_t now = clock::now_ns();
    end_gap(*w, now);
    restart(*w, now);
    ++w->feeds;
    w->magic = magic;
    log(magic ? "feed V" : "feed");
}

bool set_timeout(int32_t units)
{
    clock::WatchdogState* w = clock::watchdog();
    if (!w) return true;
    const bool taken = units >= kLeastUnits && units <= kMostUnits;
    if (taken) w->timeout_units = units;
    if (taken && w->armed == kRunning) restart(*w, clock::now_ns());
    tell("timeout " + std::to_string(units) + " -> " + std::to_string(w->timeout_units));
    return taken;
}

int32_t timeout()
{
    clock::WatchdogState* w = clock::watchdog();
    return w ? w->timeout_units.load() : 0;
}

int32_t units_left()
{
    clock::WatchdogState* w = clock::watchdog();
    return w ? int32_t(std::max<int64_t>(0, w->deadline_ns - clock::now_ns()) / kUnit) : 0;
}

void released()
{
    clock::WatchdogState* w = clock::watchdog();
    if (!w || held()) return;
    if (w->armed == kRunning) end_gap(*w, clock::now_ns());
    if (w->magic) w->armed = kOff;
    tell(w->magic ? "close" : "close without V, still running");
}

void expire()
{
    clock::WatchdogState* w = clock::watchdog();
    if (!w) return;
    int32_t running = kRunning;
    if (w->magic && !held()) { // its holder ended without closing: the kernel closed for it
        if (w->armed.compare_exchange_strong(running, kOff)) tell("close");
        return;
    }
    if (!w->armed.compare_exchange_strong(running, kFired)) return;
    end_gap(*w, clock::now_ns());
    log("reset");
    power::lose(power::Loss::watchdog);
}

Report report()
{
    const clock::WatchdogState* w = clock::watchdog();
    if (!w) return {};
    const bool armed = w->armed == kRunning;
    return {armed,    w->armed == kFired, w->timeout_units,
            w->feeds, w->longest_gap_ns,  armed ? clock::now_ns() - w->last_feed_ns : 0};
}

} // namespace vcam::watchdog
