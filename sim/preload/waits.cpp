// Interposers: waits with a time limit, for descriptors and for condition variables.
#include "sim/clock/clock.hpp"
#include "sim/models/model.hpp"
#include "sim/preload/real.hpp"
#include "sim/preload/timespec.hpp"
#include "sim/base/raw.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>

using namespace vcam;

extern "C" [[noreturn]] void __chk_fail();

namespace {

constexpr int64_t kNoLimit = INT64_MAX;
constexpr int64_t kCondSlice = 50'000; // host time
// Nothing wakes a wait for a model: it must look before the camera has stood still long enough to skip.
constexpr int64_t kModelSlice = 2'000'000;
static_assert(kModelSlice * 4 < clock::kLongestSettle);

using Poll = int(pollfd*, nfds_t, int);
using Ppoll = int(pollfd*, nfds_t, const timespec*, const sigset_t*);

int real_ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    return VCAM_NEXT(Ppoll, "ppoll")(fds, count, limit, mask);
}

// What the models among the descriptors say; their own files are always readable and writable, so
// the kernel is not asked about them. Gives the number that are ready and when that may change.
struct ModelLook {
    int ready = 0;
    int64_t changes_ns = kNoLimit;
};

ModelLook look_at_models(pollfd* fds, nfds_t count)
{
    ModelLook look;
    for (nfds_t i = 0; i < count; ++i) {
        Model* model = fds[i].fd >= 0 ? device::of(fds[i].fd) : nullptr;
        if (!model || !model->has_readiness()) continue;
        const Readiness r = model->readiness(fds[i].fd);
        fds[i].revents = short(r.events & (fds[i].events | POLLERR | POLLHUP | POLLNVAL));
        look.ready += fds[i].revents != 0;
        look.changes_ns = std::min(look.changes_ns, r.changes_ns);
    }
    return look;
}

bool has_model(const pollfd& f)
{
    Model* model = f.fd >= 0 ? device::of(f.fd) : nullptr;
    return model && model->has_readiness();
}

bool any_model(const pollfd* fds, nfds_t count) { return std::any_of(fds, fds + count, has_model); }

// One look at everything, waiting at most so long in host time for the kernel's part.
int look_at_all(pollfd* fds, nfds_t count, int64_t host_ns, const sigset_t* mask, int64_t* changes_ns)
{
    const ModelLook models = look_at_models(fds, count);
    *changes_ns = models.changes_ns;
    const timespec limit = spec_of<timespec>(models.ready ? 0 : host_ns);
    // The kernel skips a descriptor below zero and leaves its result to us.
    pollfd few[64];
    pollfd* const asked =
        count <= std::size(few) ? few : static_cast<pollfd*>(malloc(sizeof(pollfd) * count));
    if (!asked) return refused(ENOMEM);
    for (nfds_t i = 0; i < count; ++i) {
        asked[i] = fds[i];
        Model* model = fds[i].fd >= 0 ? device::of(fds[i].fd) : nullptr;
        if (model && model->has_readiness()) asked[i].fd = -1;
    }
    const int n = real_ppoll(asked, count, &limit, mask);
    const int e = errno;
    for (nfds_t i = 0; i < count; ++i)
        if (asked[i].fd >= 0 || fds[i].fd < 0) fds[i].revents = n < 0 ? short(0) : asked[i].revents;
    if (asked != few) free(asked);
    errno = e;
    return n < 0 ? n : n + models.ready;
}

// poll in camera time. limit_ns is a length; kNoLimit waits for ever.
int wait_for(pollfd* fds, nfds_t count, int64_t limit_ns, const sigset_t* wanted)
{
    const clock::SignalHold hold; // signals come in while the kernel waits, where they end the wait
    const sigset_t* mask = wanted ? wanted : &hold.before();
    const int64_t deadline = limit_ns == kNoLimit ? kNoLimit : clock::now_ns() + limit_ns;
    // Who stands outside the camera makes no model ready.
    const auto alone =
        std::all_of(fds, fds + count, has_model) ? clock::Wait::plain : clock::Wait::descriptor;
    const int64_t slice = any_model(fds, count) ? kModelSlice : kNoLimit;
    int64_t changes = kNoLimit;
    int n = look_at_all(fds, count, 0, mask, &changes);
    while (n == 0 && clock::now_ns() < deadline) {
        const int64_t until = std::min(deadline, changes);
        const clock::Wait kind = until == changes ? clock::Wait::plain : alone;
        clock::Sleeper sleeper(until, kind);
        // Peers outside the camera get their time before the first skip.
        int64_t pause = kind == clock::Wait::plain ? sleeper.try_skip() : clock::kPeerGrace;
        while (n == 0 && !sleeper.over() && std::min(deadline, changes) == until) {
            pause = std::min(pause, slice);
            const int64_t left = std::max<int64_t>(0, until - clock::now_ns()); // it may just have passed
            n = look_at_all(fds, count, std::clamp<int64_t>(pause, 0, left), mask, &changes);
            if (n == 0) pause = sleeper.try_skip();
        }
        if (n == 0) n = look_at_all(fds, count, 0, mask, &changes);
    }
    return n;
}

// Whether a wait concerns camera time or a model; everything else is the kernel's.
bool is_ours(const pollfd* fds, nfds_t count, int64_t limit_ns)
{
    if (!active()) return false;
    return (limit_ns != 0 && limit_ns != kNoLimit) || any_model(fds, count);
}

// A select is a poll over the union of its sets.
class Sets {
public:
    Sets(int count, fd_set* in, fd_set* out, fd_set* odd) : in_(in), out_(out), odd_(odd)
    {
        for (int fd = 0; fd < count && fd < FD_SETSIZE; ++fd) {
            const short events = short((has(in, fd) ? POLLIN : 0) | (has(out, fd) ? POLLOUT : 0) |
                                       (has(odd, fd) ? POLLPRI : 0));
            if (events) fds_[count_++] = {fd, events, 0};
        }
    }
    pollfd* fds() { return fds_; }
    [[nodiscard]] nfds_t count() const { return count_; }
    // The sets as select leaves them, and its result for poll's.
    int finish(int result)
    {
        if (result < 0) return result;
        for (nfds_t i = 0; i < count_; ++i)
            if (fds_[i].revents & POLLNVAL) return refused(EBADF);
        if (in_) FD_ZERO(in_);
        if (out_) FD_ZERO(out_);
        if (odd_) FD_ZERO(odd_);
        int bits = 0;
        for (nfds_t i = 0; i < count_; ++i) {
            const pollfd& f = fds_[i];
            bits += set(in_, f, POLLIN, POLLIN | POLLHUP | POLLERR);
            bits += set(out_, f, POLLOUT, POLLOUT | POLLERR);
            bits += set(odd_, f, POLLPRI, POLLPRI);
        }
        return bits;
    }

private:
    static bool has(const fd_set* set, int fd) { return set && FD_ISSET(fd, set); }
    static int set(fd_set* set, const pollfd& f, short asked, int found)
    {
        if (!set || !(f.events & asked) || !(f.revents & found)) return 0;
        FD_SET(f.fd, set);
        return 1;
    }
    fd_set *in_, *out_, *odd_;
    pollfd fds_[FD_SETSIZE] = {};
    nfds_t count_ = 0;
};

int select_any(int count, fd_set* in, fd_set* out, fd_set* odd, int64_t limit_ns, const sigset_t* mask)
{
    Sets sets(count, in, out, odd);
    return sets.finish(wait_for(sets.fds(), sets.count(), limit_ns, mask));
}

bool select_is_ours(int count, fd_set* in, fd_set* out, fd_set* odd, int64_t limit_ns)
{
    if (!active() || count < 0 || count > FD_SETSIZE) return false;
    if (limit_ns != 0 && limit_ns != kNoLimit) return true;
    Sets sets(count, in, out, odd);
    return any_model(sets.fds(), sets.count());
}

int64_t limit_of(int timeout_ms) { return timeout_ms < 0 ? kNoLimit : timeout_ms * int64_t(1'000'000); }

template<class Spec> int64_t limit_of(const Spec* limit) { return limit ? ns_of(*limit) : kNoLimit; }

template<class Spec> bool bad_limit(const Spec* limit)
{
    return limit && (limit->tv_sec < 0 || limit->tv_nsec < 0 || limit->tv_nsec >= clock::kSecond);
}

// The time limit of a condition wait may be on either clock; a calendar and a time since the start
// are decades apart, so the nearer one is meant.
bool is_calendar_time(int64_t t) { return std::abs(t - clock::wall_ns()) < std::abs(t - clock::now_ns()); }

// Waits in slices of host time, and looks after each whether time may pass. Meanwhile the mutex is free: who still
// needs it is not at rest, but seems to be while the one that looks holds it. A slice without a signal returns as a
// spurious wake-up, which every waiter must expect: a signal given between two slices of one call would be missed.
template<class Spec, class Wait>
int cond_wait(pthread_mutex_t* mutex, const Spec* until, bool calendar, Wait wait)
{
    if (until->tv_nsec < 0 || until->tv_nsec >= clock::kSecond) return EINVAL;
    const int64_t deadline = ns_of(*until) - (calendar ? clock::wall_ns() - clock::now_ns() : 0);
    clock::Sleeper sleeper(deadline, clock::Wait::plain);
    const int64_t host = raw::clock_ns(calendar ? CLOCK_REALTIME : CLOCK_MONOTONIC);
    const int result = wait(host + (sleeper.over() ? 0 : kCondSlice));
    if (result != ETIMEDOUT || sleeper.over()) return result;
    if (::pthread_mutex_unlock(mutex) == 0) {
        sleeper.try_skip();
        if (const int lost = ::pthread_mutex_lock(mutex); lost != 0) return lost;
    }
    return sleeper.over() ? ETIMEDOUT : 0;
}

} // namespace

VCAM_EXPORT int poll(pollfd* fds, nfds_t count, int timeout_ms)
{
    if (!is_ours(fds, count, limit_of(timeout_ms))) return VCAM_NEXT(Poll, "poll")(fds, count, timeout_ms);
    return wait_for(fds, count, limit_of(timeout_ms), nullptr);
}

VCAM_EXPORT int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t room)
{
    if (room / sizeof *fds < count) __chk_fail();
    return poll(fds, count, timeout_ms);
}

#define PPOLL(name, Spec)                                                                                    \
    VCAM_EXPORT int name(pollfd* fds, nfds_t count, const Spec* limit, const sigset_t* mask)                 \
    {                                                                                                        \
        using Type = int(pollfd*, nfds_t, const Spec*, const sigset_t*);                                     \
        if (bad_limit(limit) || !is_ours(fds, count, limit_of(limit)))                                       \
            return VCAM_NEXT(Type, #name)(fds, count, limit, mask);                                          \
        return wait_for(fds, count, limit_of(limit), mask);                                                  \
    }
PPOLL(ppoll, timespec)

VCAM_EXPORT int __ppoll_chk(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask,
                            size_t room)
{
    if (room / sizeof *fds < count) __chk_fail();
    return ppoll(fds, count, limit, mask);
}

#define SELECT(name, Val)                                                                                    \
    VCAM_EXPORT int name(int count, fd_set* in, fd_set* out, fd_set* odd, Val* limit)                        \
    {                                                                                                        \
        using Type = int(int, fd_set*, fd_set*, fd_set*, Val*);                                              \
        const bool bad = limit && (limit->tv_sec < 0 || limit->tv_usec < 0);                                 \
        const int64_t limit_ns = limit ? ns_of_val(*limit) : kNoLimit;                                       \
        if (bad || !select_is_ours(count, in, out, odd, limit_ns))                                           \
            return VCAM_NEXT(Type, #name)(count, in, out, odd, limit);                                       \
        const int64_t start = clock::now_ns();                                                               \
        const int result = select_any(count, in, out, odd, limit_ns, nullptr);                               \
        if (limit) *limit = val_of<Val>(std::max<int64_t>(0, limit_ns - (clock::now_ns() - start)));         \
        return result;                                                                                       \
    }
SELECT(select, timeval)

#define PSELECT(name, Spec)                                                                                  \
    VCAM_EXPORT int name(int count, fd_set* in, fd_set* out, fd_set* odd, const Spec* limit,                 \
                         const sigset_t* mask)                                                               \
    {                                                                                                        \
        using Type = int(int, fd_set*, fd_set*, fd_set*, const Spec*, const sigset_t*);                      \
        if (bad_limit(limit) || !select_is_ours(count, in, out, odd, limit_of(limit)))                       \
            return VCAM_NEXT(Type, #name)(count, in, out, odd, limit, mask);                                 \
        return select_any(count, in, out, odd, limit_of(limit), mask);                                       \
    }
PSELECT(pselect, timespec)

#define COND_TIMEDWAIT(name, Spec)                                                                           \
    VCAM_EXPORT int name(pthread_cond_t* cond, pthread_mutex_t* mutex, const Spec* until)                    \
    {                                                                                                        \
        const auto real = VCAM_NEXT(int(pthread_cond_t*, pthread_mutex_t*, const Spec*), #name);             \
        if (!active()) return real(cond, mutex, until);                                                      \
        return cond_wait(mutex, until, is_calendar_time(ns_of(*until)), [&](int64_t host_ns) {               \
            const Spec limit = spec_of<Spec>(host_ns);                                                       \
            return real(cond, mutex, &limit);                                                                \
        });                                                                                                  \
    }
COND_TIMEDWAIT(pthread_cond_timedwait, timespec)

#define COND_CLOCKWAIT(name, Spec)                                                                           \
    VCAM_EXPORT int name(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t id, const Spec* until)      \
    {                                                                                                        \
        const auto real = VCAM_NEXT(int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const Spec*), #name);  \
        if (!active()) return real(cond, mutex, id, until);                                                  \
        return cond_wait(mutex, until, id == CLOCK_REALTIME, [&](int64_t host_ns) {                          \
            const Spec limit = spec_of<Spec>(host_ns);                                                       \
            return real(cond, mutex, id, &limit);                                                            \
        });                                                                                                  \
    }
COND_CLOCKWAIT(pthread_cond_clockwait, timespec)

#ifndef __LP64__
PPOLL(__ppoll64, Timespec64)
SELECT(__select64, Timeval64)
PSELECT(__pselect64, Timespec64)
COND_TIMEDWAIT(__pthread_cond_timedwait64, Timespec64)
COND_CLOCKWAIT(__pthread_cond_clockwait64, Timespec64)
#endif
