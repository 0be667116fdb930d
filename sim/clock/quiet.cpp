// Whether any thread could run, from the kernel's process files.
#include "sim/clock/quiet.hpp"
#include "sim/base/raw.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace vcam::quiet {
namespace {

constexpr size_t kMaxThreads = 256;

struct Thread {
    int tid;
    uint64_t switches; // how often it has left a processor
};

struct Look {
    std::array<Thread, kMaxThreads> threads;
    size_t count = 0;
    bool quiet = true;
    int self = raw::tid();
};

// "<key>\t<number>" of a status file; 0 when it is missing.
uint64_t number_after(const char* text, const char* key)
{
    const char* at = ::strstr(text, key);
    return at ? ::strtoull(at + ::strlen(key), nullptr, 10) : 0;
}

// The thread's state letter, 0 when it is gone.
char read_thread(const char* path, uint64_t& switches)
{
    char text[4096];
    const raw::Fd fd(raw::open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t n = fd ? raw::read(fd.get(), text, sizeof text - 1) : -1;
    if (n <= 0) return 0;
    text[n] = '\0';
    const char* state = ::strstr(text, "\nState:\t");
    switches = number_after(text, "\nvoluntary_ctxt_switches:\t") +
               number_after(text, "nonvoluntary_ctxt_switches:\t");
    return state ? state[8] : '\0';
}

// Calls visit(number) for each entry of the folder that is a number. False when it cannot be read.
template<class Visit> bool each_number(const char* folder, Visit visit)
{
    const raw::Fd fd(raw::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) return false;
    alignas(8) char entries[4096];
    for (;;) {
        const long n = ::syscall(SYS_getdents64, fd.get(), entries, sizeof entries);
        if (n <= 0) return n == 0;
        for (long at = 0; at < n;) {
            uint16_t length;
            ::memcpy(&length, entries + at + 16, sizeof length);
            const char* name = entries + at + 19;
            if (name[0] >= '1' && name[0] <= '9') visit(int(::strtol(name, nullptr, 10)));
            at += length;
        }
    }
}

void look_at_thread(Look& look, int pid, int tid)
{
    if (!look.quiet || tid == look.self) return;
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/task/%d/status", pid, tid);
    uint64_t switches = 0;
    const char state = read_thread(path, switches);
    if (state == 0 || state == 'Z' || state == 'X') return;
    // Blocked in an interruptible wait, stopped by a signal, or an idle kernel thread. Disk waits and
    // a debugger's stop count as running.
    if (!::strchr("STI", state) || look.count == look.threads.size()) {
        look.quiet = false;
        return;
    }
    look.threads[look.count++] = {tid, switches};
}

void look_at_process(Look& look, int pid)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/task", pid);
    each_number(path, [&](int tid) { look_at_thread(look, pid, tid); });
}

void look_at_space(Look& look)
{
    if (!each_number("/proc", [&](int pid) { look_at_process(look, pid); })) look.quiet = false;
}

struct Process {
    int pid, parent;
    bool ours;
};

int parent_of(int pid)
{
    char path[64], text[512];
    snprintf(path, sizeof path, "/proc/%d/stat", pid);
    const raw::Fd fd(raw::open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t n = fd ? raw::read(fd.get(), text, sizeof text - 1) : 0;
    if (n <= 0) return 0;
    text[n] = '\0';
    const char* name_end = ::strrchr(text, ')'); // then " S <parent> "
    return name_end && ::strlen(name_end) > 4 ? int(::strtol(name_end + 4, nullptr, 10)) : 0;
}

// A child that has not started its program yet, or runs one without the simulated drivers, belongs to
// the camera too. The kernel lists no children, so every process is asked for its parent.
void look_at_families(Look& look, std::span<const int> pids)
{
    std::vector<Process> all;
    each_number("/proc", [&](int pid) {
        all.push_back({pid, parent_of(pid), std::find(pids.begin(), pids.end(), pid) != pids.end()});
    });
    for (bool grown = true; grown;) {
        grown = false;
        for (Process& p : all)
            for (const Process& q : all)
                if (!p.ours && q.ours && p.parent == q.pid) p.ours = grown = true;
    }
    for (const Process& p : all)
        if (p.ours) look_at_process(look, p.pid);
}

// The usual test program: nobody else, no children.
bool is_alone(std::span<const int> pids)
{
    const int self = raw::pid();
    if (std::any_of(pids.begin(), pids.end(), [self](int pid) { return pid != 0 && pid != self; }))
        return false;
    siginfo_t info;
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0;
}

bool same(const Look& a, const Look& b)
{
    return a.count == b.count && std::equal(a.threads.begin(), a.threads.begin() + long(a.count),
                                            b.threads.begin(), [](const Thread& x, const Thread& y) {
                                                return x.tid == y.tid && x.switches == y.switches;
                                            });
}

// One look reads the threads one after the other, and work may be handed along in front of it. When a
// second look finds every thread blocked with no switch since the first, they all stood still at the
// moment between the two.
template<class Take> bool twice(Take take)
{
    const int e = errno;
    Look first, second;
    take(first);
    if (first.quiet) take(second);
    errno = e;
    return first.quiet && second.quiet && same(first, second);
}

} // namespace

bool alive(int tid)
{
    char path[64];
    const int e = errno;
    snprintf(path, sizeof path, "/proc/%d/status", tid);
    uint64_t switches = 0;
    const char state = read_thread(path, switches);
    errno = e;
    return state != 0 && state != 'Z' && state != 'X';
}

bool whole_space()
{
    return twice([&](Look& look) { look_at_space(look); });
}

bool families(std::span<const int> pids)
{
    return twice([&](Look& look) {
        if (is_alone(pids))
            look_at_process(look, raw::pid());
        else
            look_at_families(look, pids);
    });
}

} // namespace vcam::quiet
