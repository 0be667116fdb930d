// Simulated time: one clock a camera, in a page that all its processes share.
//
// Camera time is the host's monotonic time plus an offset that only grows. Whoever waits for a time
// registers as a sleeper; when nothing else in the camera can run, the offset jumps to the earliest
// time that a sleeper, or the watchdog, waits for. A pause thus costs what the others do meanwhile, and
// nothing when they do nothing. Camera time continues over the runs of one camera; its off time does
// not count.
//
// "Nothing else can run" is read from the kernel: every thread of the camera (of every process of its
// process space, or, for test programs without one, of every process that has attached) is blocked, in
// two looks between which none of them was switched in.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>
#include <string>

namespace vcam::clock {

inline constexpr int64_t kSecond = 1'000'000'000, kMillisecond = kSecond / 1000;
inline constexpr int64_t kTick = 10'000'000; // HZ=100: no sleep is shorter
// A wait for a descriptor gives peers outside the camera, and the host's network on the way to them, this
// long in host time before it skips; the longer the wait, the more patience, so that a busy host does not
// fire long time-outs.
inline constexpr int64_t kPeerGrace = 20'000'000, kLongestGrace = 500'000'000;
inline constexpr int64_t kGraceShare = 50;
// Nobody runs while a message is on its way through a busy host's network. Before a long skip the camera
// therefore has to stand still for a while, a share of the skip, in host time.
inline constexpr int64_t kSettleFrom = 100'000'000, kSettleShare = 200, kLongestSettle = 20'000'000;

struct PowerOn {
    bool realtime = false;  // never skip
    bool owns_pids = false; // the process space holds this camera and nothing else
};

// Starts (and on first use creates) the clock of the state folder. The calendar clock forgets what it was set
// to, the watchdog is off. "" or what failed.
std::string power_on(const PowerOn& options);
// Remembers the camera time for the next power_on, and forgets all sleepers.
void power_off();
// Maps the clock of the state folder if there is one; called by now_ns and the others as needed.
bool attach();
void joined_by_fork(); // in the child
void detach();

int64_t now_ns();            // camera time; 0 without a camera
int64_t wall_ns();           // the camera's calendar clock, since 1970
void set_wall_ns(int64_t t); // moves the calendar clock and nothing else
bool realtime();
bool owns_pids();
// The camera's power, until the next power_on. mark_power_off is true for the one caller who cut it.
bool has_power();
bool mark_power_off();

enum class Wait : uint8_t { plain, descriptor };

// The calling thread waits for camera time `deadline_ns`, which no skip passes while this lives.
class Sleeper {
public:
    Sleeper(int64_t deadline_ns, Wait kind);
    ~Sleeper();
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    [[nodiscard]] bool over() const;
    // Skips if the camera allows it; else says how long, in host ns, to wait before asking again.
    int64_t try_skip();
    // Waits so long, or until another thread skips, or a signal's handler has run.
    void nap(int64_t host_ns);

private:
    int slot_ = -1;
    int64_t deadline_;
    uint32_t generation_ = 0;
    int64_t since_ns_; // host time since which the camera has not skipped
};

// Holds signals back while it lives.
class SignalHold {
public:
    SignalHold();
    ~SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    [[nodiscard]] const sigset_t& before() const { return before_; }

private:
    sigset_t before_;
};

// Sleeps until camera time `deadline_ns`. False when a signal's handler ran meanwhile, unless `restart`
// says to go on then.
bool sleep_until(int64_t deadline_ns, bool restart);

// The watchdog's part of the clock's record: any process that lets time pass fires it.
struct WatchdogState {
    std::atomic<int32_t> armed;         // 0 off, 1 running, 2 has reset the camera
    std::atomic<int32_t> timeout_units; // in force, in the driver's units
    alignas(8) std::atomic<int64_t> last_feed_ns;
    alignas(8) std::atomic<int64_t> deadline_ns;
    alignas(8) std::atomic<int64_t> longest_gap_ns; // between two feeds, arming included
    std::atomic<int32_t> feeds;
    std::atomic<int32_t> magic; // 'V' was the last thing written
};
WatchdogState* watchdog(); // null without a camera
// Fires the watchdog if its time is over; whoever lives long without waiting calls this now and then.
void check_watchdog();

} // namespace vcam::clock
