// What the fault plan has for commands and for the C library's calls.
#pragma once

#include "sim/base/caller.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/raw.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/power.hpp"
#include "sim/preload/real.hpp"

#include <cerrno>
#include <csignal>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

namespace vcam {

// What a call gives that fails.
template<class Result> Result failure()
{
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else
        return -1;
}

// Runs a call as the plan wants it; `dropped` is the result of a call that is dropped.
template<class Result, class Run> Result run_planned(const faults::Effect& effect, Result dropped, Run run)
{
    using faults::Kind;
    switch (effect.kind) {
    case Kind::error:
        errno = effect.error;
        return failure<Result>();
    case Kind::drop:
        return dropped;
    case Kind::kill:
        ::syscall(SYS_kill, raw::pid(), SIGKILL); // not by kill(), which the journal has
        break;
    case Kind::signal:
        caller::interrupt(int(effect.value));
        break;
    case Kind::cut_before:
    case Kind::cut_inside:
        power::lose(power::Loss::cut, effect.line);
        errno = EIO;
        return failure<Result>();
    default:
        break;
    }
    const Result result = run();
    const int e = errno;
    if (effect.kind == Kind::cut_after) power::lose(power::Loss::cut, effect.line);
    if (effect.kind == Kind::slow)
        clock::sleep_until(clock::now_ns() + effect.value * clock::kMillisecond, true);
    errno = e;
    return result;
}

template<class Run> auto run_command(const char* name, Run run)
{
    return active() ? run_planned(faults::next(clock::now_ns, name), decltype(run())(0), run) : run();
}

inline bool is_planned(const char* call) { return active() && faults::plans_call(call); }

// A call of the C library whose success is 0, a new number or memory.
template<class Run> auto run_call(const char* name, Run run)
{
    if (!is_planned(name)) return run();
    return run_planned(faults::next(clock::now_ns, name, program_invocation_short_name), decltype(run())(0),
                       run);
}

// One that moves bytes: run gets how many.
template<class Run> ssize_t run_transfer(const char* name, size_t size, Run run)
{
    if (!is_planned(name)) return run(size);
    const faults::Effect effect = faults::next(clock::now_ns, name, program_invocation_short_name);
    const size_t half = size > 1 ? size / 2 : size;
    if (effect.kind == faults::Kind::cut_inside) run(half);
    const size_t wanted = effect.kind == faults::Kind::short_count ? half : size;
    return run_planned(effect, ssize_t(size), [&] { return run(wanted); });
}

} // namespace vcam
