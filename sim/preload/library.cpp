// The preload library's beginning and end, and the calls for test programs that link it.
#include "sim/clock/clock.hpp"
#include "sim/base/faults.hpp"
#include "sim/models/page.hpp"
#include "sim/models/model.hpp"
#include "sim/models/own_device.hpp"
#include "sim/models/table.hpp"
#include "sim/clock/power.hpp"
#include "sim/preload/allocations.hpp"
#include "sim/preload/own_code.hpp"
#include "sim/preload/real.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"
#include "sim/preload/vcamsim.h"
#include "sim/clock/watchdog_timer.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <unistd.h>

namespace vcam {
namespace {

std::atomic<int> in_camera{-1}; // -1: not known yet

// The shared clock must be mapped before a program can depend on it, and once a process.
bool find_camera() { return !state::dir().empty() && clock::attach(); }

void after_fork() { clock::joined_by_fork(); }

__attribute__((constructor)) void begin()
{
    models::use_code(load_code);
    if (!active()) return;
    device::adopt_inherited();
    allocations::replace();
    ::pthread_atfork(nullptr, nullptr, after_fork);
}

__attribute__((destructor)) void finish()
{
    if (active()) device::flush_all();
}

} // namespace

bool active()
{
    const int known = in_camera.load(std::memory_order_relaxed);
    if (known >= 0) return known;
    // Calls on the way to the answer pass straight through.
    in_camera = 0;
    const bool found = find_camera();
    in_camera = found;
    return found;
}

void* next_symbol(const char* name)
{
    if (void* found = ::dlsym(RTLD_NEXT, name)) return found;
    static constexpr char kText[] = "libvcamsim: the C library lacks a function that it stands in front of: ";
    raw::write(2, kText, sizeof kText - 1);
    raw::write(2, name, std::char_traits<char>::length(name));
    raw::write(2, "\n", 1);
    ::abort();
}

} // namespace vcam

using namespace vcam;

VCAM_EXPORT int vcamsim_start(const char* state_folder, int realtime)
{
    vcamsim_stop();
    state::set_dir(state_folder);
    faults::forget_calls();
    media::power_on();
    std::string error = clock::power_on({.realtime = realtime != 0, .owns_pids = false});
    try {
        models::power_on_own_devices();
    } catch (const std::exception& problem) {
        error = problem.what();
    }
    if (!error.empty()) {
        fprintf(stderr, "vcamsim_start: %s\n", error.c_str());
        state::set_dir("");
        return -1;
    }
    in_camera = 1;
    return 0;
}

VCAM_EXPORT void vcamsim_stop(void)
{
    if (!active()) return;
    device::flush_all();
    device::forget_counts();
    clock::power_off();
    in_camera = 0;
    clock::detach();
    state::set_dir("");
}

VCAM_EXPORT int vcamsim_fault(const char* line)
{
    faults::forget_calls();
    const std::string error = faults::check(line, models::fault_targets(state::dir()));
    if (error.empty()) {
        if (!raw::append(state::path("faults"), std::string(line) + "\n")) return -1;
        allocations::replace();
        return 0;
    }
    fprintf(stderr, "vcamsim_fault: %s\n", error.c_str());
    return -1;
}

VCAM_EXPORT void vcamsim_clear_faults(void)
{
    faults::forget_calls();
    ::unlink(state::path("faults").c_str());
    ::unlink(state::path("faults.state").c_str());
}

VCAM_EXPORT int vcamsim_count(const char* device, const char* operation)
{
    return device::count(device, operation);
}
VCAM_EXPORT int64_t vcamsim_now_us(void) { return clock::now_ns() / 1000; }
VCAM_EXPORT int vcamsim_has_power(void) { return clock::has_power(); }

VCAM_EXPORT void vcamsim_read_watchdog(struct vcamsim_watchdog* out)
{
    const watchdog::Report r = watchdog::report();
    *out = {r.armed, r.fired, r.timeout_units, r.feeds, r.longest_gap_ns / 1000, r.since_feed_ns / 1000};
}
