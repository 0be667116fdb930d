// Camera time: the record that the processes share, sleepers, skips.
#include "sim/clock/clock.hpp"
#include "sim/clock/quiet.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"
#include "sim/clock/watchdog_timer.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam::clock {
namespace {

constexpr uint32_t kClockMagic = 0x314B4356; // "VCK1"
constexpr int64_t kNever = INT64_MAX;
constexpr int kSleepers = 256, kMembers = 64;
constexpr int64_t kWatchdogLook = 50'000'000; // in real time, sleepers wake to look at the watchdog
// Sleepers look again after a share of the time they have waited: on a busy host each look makes the thread
// seem to run for a while, and sleepers that look often never find each other at rest.
constexpr int64_t kPauseShare = 16, kFirstPause = 50'000, kLongestPause = 100'000'000;
constexpr int64_t kSignalPause = 500'000;

struct Slot {
    std::atomic<int32_t> tid; // 0: free
    std::atomic<int32_t> kind;
    alignas(8) std::atomic<int64_t> deadline_ns;
    alignas(8) std::atomic<int64_t> grace_until_ns; // host time
};

// The same layout in 64-bit and 32-bit processes.
struct SharedClock {
    std::atomic<uint32_t> magic;
    std::atomic<uint32_t> realtime;
    std::atomic<uint32_t> owns_pids;
    std::atomic<uint32_t> generation;          // counts skips; sleepers wait on it
    std::atomic<int32_t> skipper;              // thread that decides about a skip
    std::atomic<uint32_t> dark;                // the power is lost
    alignas(8) std::atomic<int64_t> offset_ns; // camera time - host monotonic time
    alignas(8) std::atomic<int64_t> wall_base_ns;
    alignas(8) std::atomic<int64_t> stopped_ns; // camera time at power_off; -1 while running
    alignas(8) std::atomic<int64_t> seen_ns;    // latest time of a skip: where a lost camera stood
    WatchdogState watchdog;
    std::array<std::atomic<int32_t>, kMembers> members; // processes, where the process space is shared
    std::array<Slot, kSleepers> sleepers;
    alignas(8) std::atomic<int64_t> first_base_ns; // the calendar as the first start found it
};
static_assert(std::atomic<int64_t>::is_always_lock_free && sizeof(Slot) == 24);
static_assert(sizeof(SharedClock) == 56 + 40 + 4 * kMembers + 24 * kSleepers + 8);

std::atomic<SharedClock*> mapped{nullptr};

int64_t host_ns() { return raw::clock_ns(CLOCK_MONOTONIC); }

SharedClock* map(int flags)
{
    const raw::Fd fd(raw::open(state::path("clock").c_str(), flags | O_CLOEXEC, 0666));
    if (!fd) return nullptr;
    const int64_t size = raw::seek(fd.get(), 0, SEEK_END);
    if (flags & O_CREAT) {
        const char zero = 0;
        if (size < int64_t(sizeof(SharedClock)) &&
            raw::pwrite(fd.get(), &zero, 1, sizeof(SharedClock) - 1) != 1)
            return nullptr;
    } else if (size < int64_t(sizeof(SharedClock))) {
        return nullptr;
    }
    void* memory = ::mmap(nullptr, sizeof(SharedClock), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    return memory == MAP_FAILED ? nullptr : static_cast<SharedClock*>(memory);
}

SharedClock* page()
{
    SharedClock* p = mapped.load(std::memory_order_acquire);
    return p || !attach() ? p : mapped.load(std::memory_order_acquire);
}

int64_t now(const SharedClock& p) { return host_ns() + p.offset_ns.load(); }

void join(SharedClock& p)
{
    const int32_t self = raw::pid();
    for (auto& member : p.members)
        if (member == self) return;
    for (auto& member : p.members) {
        int32_t gone = member;
        if (gone != 0 && (::kill(gone, 0) == 0 || errno != ESRCH)) continue;
        if (member.compare_exchange_strong(gone, self)) return;
    }
}

bool watchdog_due(SharedClock& p, int64_t t) { return p.watchdog.armed == 1 && t >= p.watchdog.deadline_ns; }

// The earliest time somebody waits for; kNever when the camera must not skip yet.
int64_t next_event(SharedClock& p, int64_t t)
{
    int64_t earliest = kNever, grace = 0;
    for (const Slot& s : p.sleepers) {
        const int32_t tid = s.tid;
        if (tid == 0) continue;
        const int64_t deadline = s.deadline_ns;
        if (deadline <= t) {
            if (quiet::alive(tid)) return kNever; // is waking up
            continue;
        }
        if (deadline < earliest) {
            earliest = deadline;
            grace = 0;
        }
        if (deadline == earliest && s.kind == int(Wait::descriptor))
            grace = std::max(grace, s.grace_until_ns.load());
    }
    if (p.watchdog.armed == 1 && p.watchdog.deadline_ns < earliest) {
        earliest = p.watchdog.deadline_ns;
        grace = 0;
    }
    return host_ns() < grace ? kNever : earliest;
}

bool nothing_runs(const SharedClock& p)
{
    if (p.owns_pids) return quiet::whole_space();
    std::array<int, kMembers> members;
    std::transform(p.members.begin(), p.members.end(), members.begin(),
                   [](const auto& m) { return m.load(); });
    return quiet::families(members);
}

bool stands_still(SharedClock& p, int64_t skip_ns)
{
    if (!nothing_runs(p)) return false;
    if (skip_ns < kSettleFrom) return true;
    raw::futex_wait(&p.generation, p.generation, std::min(skip_ns / kSettleShare, kLongestSettle));
    return nothing_runs(p);
}

bool lock_skipper(SharedClock& p)
{
    const int32_t self = raw::tid();
    int32_t holder = 0;
    if (p.skipper.compare_exchange_strong(holder, self)) return true;
    return !quiet::alive(holder) && p.skipper.compare_exchange_strong(holder, self);
}

bool skip(SharedClock& p)
{
    if (p.realtime || !lock_skipper(p)) return false;
    const int64_t target = next_event(p, now(p));
    const bool go = target != kNever && stands_still(p, target - now(p)) && next_event(p, now(p)) == target;
    if (go) {
        const int64_t step = target - now(p);
        if (step > 0) p.offset_ns += step;
        p.seen_ns = target;
        ++p.generation;
    }
    p.skipper = 0;
    if (go) raw::futex_wake(&p.generation);
    return go;
}

} // namespace

std::string power_on(const PowerOn& options)
{
    detach();
    SharedClock* p = map(O_RDWR | O_CREAT);
    if (!p) return state::path("clock") + ": " + strerror(errno);
    if (p->magic != kClockMagic) {
        memset(static_cast<void*>(p), 0, sizeof *p);
        p->wall_base_ns = raw::clock_ns(CLOCK_REALTIME);
    }
    if (p->first_base_ns == 0) p->first_base_ns = p->wall_base_ns.load();
    p->wall_base_ns = p->first_base_ns.load(); // what programs set is lost with the power
    const int64_t start = std::max<int64_t>({p->stopped_ns, p->seen_ns, 0});
    for (auto& s : p->sleepers) s.tid = 0;
    for (auto& m : p->members) m = 0;
    memset(static_cast<void*>(&p->watchdog), 0, sizeof p->watchdog);
    p->skipper = 0;
    p->dark = 0;
    p->realtime = options.realtime;
    p->owns_pids = options.owns_pids;
    p->offset_ns = start - host_ns();
    p->stopped_ns = -1;
    p->magic = kClockMagic;
    mapped = p;
    join(*p);
    return {};
}

void power_off()
{
    SharedClock* p = page();
    if (!p) return;
    p->stopped_ns = now(*p);
    for (auto& s : p->sleepers) s.tid = 0;
}

bool attach()
{
    if (mapped.load(std::memory_order_acquire)) return true;
    if (state::dir().empty()) return false;
    const int e = errno;
    SharedClock* p = map(O_RDWR);
    errno = e;
    if (!p) return false;
    SharedClock* none = nullptr;
    if (p->magic != kClockMagic || !mapped.compare_exchange_strong(none, p)) {
        ::munmap(static_cast<void*>(p), sizeof *p);
        return none != nullptr;
    }
    join(*p);
    return true;
}

void joined_by_fork()
{
    if (SharedClock* p = mapped.load(); p && !p->owns_pids) join(*p);
}

void detach()
{
    if (SharedClock* p = mapped.exchange(nullptr)) ::munmap(static_cast<void*>(p), sizeof *p);
}

int64_t now_ns()
{
    const SharedClock* p = page();
    if (!p) return 0;
    const int64_t stopped = p->stopped_ns;
    return stopped >= 0 ? stopped : now(*p);
}

int64_t wall_ns()
{
    const SharedClock* p = page();
    return p ? p->wall_base_ns + now_ns() : raw::clock_ns(CLOCK_REALTIME);
}

void set_wall_ns(int64_t t)
{
    if (SharedClock* p = page()) p->wall_base_ns = t - now_ns();
}

bool realtime()
{
    const SharedClock* p = page();
    return !p || p->realtime;
}

bool owns_pids()
{
    const SharedClock* p = page();
    return p && p->owns_pids;
}

bool has_power()
{
    const SharedClock* p = page();
    return !p || !p->dark;
}

bool mark_power_off()
{
    SharedClock* p = page();
    return p && p->dark.exchange(1) == 0;
}

Sleeper::Sleeper(int64_t deadline_ns, Wait kind) : deadline_(deadline_ns), since_ns_(host_ns())
{
    SharedClock* p = page();
    if (!p) return;
    generation_ = p->generation;
    const int32_t self = raw::tid();
    for (int i = 0; i < kSleepers && slot_ < 0; ++i) {
        Slot& s = p->sleepers[size_t(i)];
        int32_t holder = s.tid;
        if (holder != 0 && (s.deadline_ns > now(*p) || quiet::alive(holder))) continue;
        // A free slot's deadline is past: until it is set, lookers see a thread about to wake.
        if (!s.tid.compare_exchange_strong(holder, self)) continue;
        s.kind = int(kind);
        s.grace_until_ns =
            host_ns() + std::clamp((deadline_ns - now(*p)) / kGraceShare, kPeerGrace, kLongestGrace);
        s.deadline_ns = deadline_ns;
        slot_ = i;
    }
}

Sleeper::~Sleeper()
{
    SharedClock* p = mapped.load();
    if (!p || slot_ < 0) return;
    p->sleepers[size_t(slot_)].deadline_ns = 0;
    p->sleepers[size_t(slot_)].tid = 0;
}

bool Sleeper::over() const { return now_ns() >= deadline_; }

int64_t Sleeper::try_skip()
{
    SharedClock* p = page();
    if (!p) return kTick;
    if (const uint32_t skips = p->generation; skips != generation_) {
        generation_ = skips;
        since_ns_ = host_ns();
    }
    if (watchdog_due(*p, now(*p))) watchdog::expire();
    const int64_t left = deadline_ - now(*p);
    if (left <= 0) return 0;
    if (skip(*p)) {
        if (watchdog_due(*p, now(*p))) watchdog::expire();
        since_ns_ = host_ns();
        return 0;
    }
    if (p->realtime) return std::min(kWatchdogLook, left);
    return std::min(std::clamp((host_ns() - since_ns_) / kPauseShare, kFirstPause, kLongestPause), left);
}

void Sleeper::nap(int64_t host_ns)
{
    if (SharedClock* p = page(); p && host_ns > 0) raw::futex_wait(&p->generation, generation_, host_ns);
}

SignalHold::SignalHold()
{
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalHold::~SignalHold() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

namespace {

// Whether a signal could run a handler in this thread. Those that report faults of the program itself
// do not come from outside.
bool handlers_wait()
{
    constexpr int kOwnFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS};
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (int s = 1; s <= SIGRTMAX; ++s) {
        if (std::find(std::begin(kOwnFaults), std::end(kOwnFaults), s) != std::end(kOwnFaults)) continue;
        struct sigaction action;
        if (!::sigismember(&mask, s) && ::sigaction(s, nullptr, &action) == 0 &&
            action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN)
            return true;
    }
    return false;
}

// A handler must end the sleep, also one that runs while the skip is considered: signals come in only
// where the kernel waits. Another thread's skip, which real time has none of, is noticed at the end of a pause.
bool sleep_with_signals(Sleeper& sleeper, bool restart)
{
    const SignalHold hold;
    while (!sleeper.over()) {
        const int64_t left = sleeper.try_skip(), pause = realtime() ? left : std::min(left, kSignalPause);
        if (raw::poll(nullptr, 0, pause, &hold.before()) < 0 && !restart) return false;
    }
    return true;
}

} // namespace

bool sleep_until(int64_t deadline_ns, bool restart)
{
    if (!page()) return true;
    const int e = errno;
    Sleeper sleeper(deadline_ns, Wait::plain);
    bool whole = true;
    if (handlers_wait())
        whole = sleep_with_signals(sleeper, restart);
    else
        while (!sleeper.over()) sleeper.nap(sleeper.try_skip());
    errno = e;
    return whole;
}

WatchdogState* watchdog()
{
    SharedClock* p = page();
    return p ? &p->watchdog : nullptr;
}

void check_watchdog()
{
    if (SharedClock* p = page(); p && p->stopped_ns < 0 && watchdog_due(*p, now(*p))) watchdog::expire();
}

} // namespace vcam::clock
