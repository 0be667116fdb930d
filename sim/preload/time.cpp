// Interposers: clocks and sleeps. Camera time is the monotonic clock, the camera's calendar the
// real-time clock; a sleep is over when camera time says so.
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/preload/planned.hpp"
#include "sim/preload/real.hpp"
#include "sim/preload/timespec.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

using namespace vcam;

namespace {

bool is_calendar(clockid_t id)
{
    return id == CLOCK_REALTIME || id == CLOCK_REALTIME_COARSE || id == CLOCK_TAI;
}

bool is_camera_clock(clockid_t id)
{
    return is_calendar(id) || id == CLOCK_MONOTONIC || id == CLOCK_MONOTONIC_COARSE ||
           id == CLOCK_MONOTONIC_RAW || id == CLOCK_BOOTTIME;
}

int64_t read_clock(clockid_t id) { return is_calendar(id) ? clock::wall_ns() : clock::now_ns(); }

template<class Spec> bool valid(const Spec& t)
{
    return t.tv_sec >= 0 && t.tv_nsec >= 0 && t.tv_nsec < clock::kSecond;
}

// Sleeps so long in camera time, a tick at least; gives what is left when a signal came.
int64_t sleep_for(int64_t ns)
{
    const int64_t deadline = clock::now_ns() + std::max(ns, clock::kTick);
    if (clock::sleep_until(deadline, false)) return 0;
    return std::max<int64_t>(deadline - clock::now_ns(), 1);
}

template<class Spec> int nanosleep_any(const Spec* length, Spec* left)
{
    if (!valid(*length)) return EINVAL;
    const int64_t rest = sleep_for(ns_of(*length));
    if (rest && left) *left = spec_of<Spec>(rest);
    return rest ? EINTR : 0;
}

template<class Spec> int clock_nanosleep_any(clockid_t id, int flags, const Spec* when, Spec* left)
{
    if (!valid(*when)) return EINVAL;
    if (!(flags & TIMER_ABSTIME)) return nanosleep_any(when, left);
    const int64_t wait = ns_of(*when) - read_clock(id);
    return wait <= 0 || clock::sleep_until(clock::now_ns() + wait, false) ? 0 : EINTR;
}

int as_errno(int error)
{
    if (!error) return 0;
    errno = error;
    return -1;
}

// The camera's calendar is set; nothing outside the camera moves.
int set_calendar(int64_t ns)
{
    char text[48];
    snprintf(text, sizeof text, "%lld.%06d", (long long)(ns / clock::kSecond),
             int(ns % clock::kSecond / 1000));
    journal::add("settimeofday", text);
    return run_command("settimeofday", [&] {
        clock::set_wall_ns(ns);
        return 0;
    });
}

} // namespace

#define CLOCK_GETTIME(name, Spec)                                                                            \
    VCAM_EXPORT int name(clockid_t id, Spec* out) noexcept                                                   \
    {                                                                                                        \
        if (!active() || !is_camera_clock(id)) return VCAM_NEXT(int(clockid_t, Spec*), #name)(id, out);      \
        *out = spec_of<Spec>(read_clock(id));                                                                \
        return 0;                                                                                            \
    }
CLOCK_GETTIME(clock_gettime, timespec)

#define GETTIMEOFDAY(name, Val)                                                                              \
    VCAM_EXPORT int name(Val* out, void* zone) noexcept                                                      \
    {                                                                                                        \
        if (!active()) return VCAM_NEXT(int(Val*, void*), #name)(out, zone);                                 \
        *out = val_of<Val>(clock::wall_ns());                                                                \
        return 0;                                                                                            \
    }
GETTIMEOFDAY(gettimeofday, timeval)

#define TIME(name, Seconds)                                                                                  \
    VCAM_EXPORT Seconds name(Seconds* out) noexcept                                                          \
    {                                                                                                        \
        if (!active()) return VCAM_NEXT(Seconds(Seconds*), #name)(out);                                      \
        const Seconds now = Seconds(clock::wall_ns() / clock::kSecond);                                      \
        if (out) *out = now;                                                                                 \
        return now;                                                                                          \
    }
TIME(time, time_t)

#define TIMESPEC_GET(name, Spec)                                                                             \
    VCAM_EXPORT int name(Spec* out, int base) noexcept                                                       \
    {                                                                                                        \
        if (!active() || base != TIME_UTC) return VCAM_NEXT(int(Spec*, int), #name)(out, base);              \
        *out = spec_of<Spec>(clock::wall_ns());                                                              \
        return base;                                                                                         \
    }
TIMESPEC_GET(timespec_get, timespec)

#define CLOCK_SETTIME(name, Spec)                                                                            \
    VCAM_EXPORT int name(clockid_t id, const Spec* value) noexcept                                           \
    {                                                                                                        \
        if (!active()) return VCAM_NEXT(int(clockid_t, const Spec*), #name)(id, value);                      \
        if (id != CLOCK_REALTIME || !valid(*value)) return as_errno(EINVAL);                                 \
        return set_calendar(ns_of(*value));                                                                  \
    }
CLOCK_SETTIME(clock_settime, timespec)

#define SETTIMEOFDAY(name, Val)                                                                              \
    VCAM_EXPORT int name(const Val* value, const struct timezone* zone) noexcept                             \
    {                                                                                                        \
        if (!active()) return VCAM_NEXT(int(const Val*, const struct timezone*), #name)(value, zone);        \
        if (!value) return 0; /* the kernel's idea of a time zone is nobody's concern here */                \
        if (value->tv_sec < 0 || value->tv_usec < 0 || value->tv_usec >= 1'000'000) return as_errno(EINVAL); \
        return set_calendar(value->tv_sec * clock::kSecond + value->tv_usec * 1000);                         \
    }
SETTIMEOFDAY(settimeofday, timeval)

#define NANOSLEEP(name, Spec)                                                                                \
    VCAM_EXPORT int name(const Spec* length, Spec* left)                                                     \
    {                                                                                                        \
        if (!active()) return VCAM_NEXT(int(const Spec*, Spec*), #name)(length, left);                       \
        return as_errno(nanosleep_any(length, left));                                                        \
    }
NANOSLEEP(nanosleep, timespec)
NANOSLEEP(__nanosleep, timespec)

#define CLOCK_NANOSLEEP(name, Spec)                                                                          \
    VCAM_EXPORT int name(clockid_t id, int flags, const Spec* when, Spec* left)                              \
    {                                                                                                        \
        if (active() && is_camera_clock(id)) return clock_nanosleep_any(id, flags, when, left);              \
        return VCAM_NEXT(int(clockid_t, int, const Spec*, Spec*), #name)(id, flags, when, left);             \
    }
CLOCK_NANOSLEEP(clock_nanosleep, timespec)

#ifndef __LP64__
CLOCK_GETTIME(__clock_gettime64, Timespec64)
GETTIMEOFDAY(__gettimeofday64, Timeval64)
TIME(__time64, int64_t)
TIMESPEC_GET(__timespec_get64, Timespec64)
CLOCK_SETTIME(__clock_settime64, Timespec64)
SETTIMEOFDAY(__settimeofday64, Timeval64)
NANOSLEEP(__nanosleep64, Timespec64)
CLOCK_NANOSLEEP(__clock_nanosleep_time64, Timespec64)
#endif

VCAM_EXPORT int usleep(useconds_t us)
{
    if (!active()) return VCAM_NEXT(int(useconds_t), "usleep")(us);
    return as_errno(sleep_for(int64_t(us) * 1000) ? EINTR : 0);
}

VCAM_EXPORT unsigned sleep(unsigned seconds)
{
    if (!active()) return VCAM_NEXT(unsigned(unsigned), "sleep")(seconds);
    if (seconds == 0) return 0;
    return unsigned((sleep_for(seconds * clock::kSecond) + clock::kSecond / 2) / clock::kSecond);
}
