// Processes by the path they were started with: presence, signals, waiting.
#include "service/cutil_proc.h"
#include "common/base/fd.hpp"
#include "service/kill_list.hpp"
#include "service/proc_scan.hpp"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using namespace zep;

constexpr int64_t kEndLimitMs = 10000;
// What a zero sleep costs on the device, one tick. Without it this is a busy loop beside the very process
// that is to come to its end.
constexpr useconds_t kPollUs = 10000;

struct Presence {
    const char* name;
    bool verbose;
    bool found;
};

void trace_entry(void*, const char* name) { printf("CUTIL_IsProc dirp->d_name : %s\n", name); }

void trace_considered(void*, int pid, const char* path) { printf("CUTIL_IsProc 4 : %d : %s\n", pid, path); }

// Quiet callers see this line too.
void print_vanished(void*, const char* path) { printf("CUTIL_IsProc error while open %s\n", path); }

void trace_command(const char* name, const char* command)
{
    printf("_name         : [%s]\n", name);
    printf("buf           : [%s]\n", command);
    printf("strlen(_name) : %d\n", int(strlen(name)));
    printf("strlen(buf)   : %d\n", int(strlen(command)));
    puts("");
}

bool look_for(void* context, int, const char* command)
{
    auto& wanted = *static_cast<Presence*>(context);
    if (wanted.verbose) trace_command(wanted.name, command);
    wanted.found = proc_matches(command, wanted.name);
    return !wanted.found;
}

struct Order {
    const char* name;
    int signal;
};

bool send_signal(void* context, int pid, const char* command)
{
    const auto& order = *static_cast<const Order*>(context);
    if (proc_matches(command, order.name)) kill(pid, order.signal);
    return true;
}

struct ListOrder {
    int signal;
    KillList list;
};

bool signal_each_match(void* context, int pid, const char* command)
{
    const auto& order = *static_cast<const ListOrder*>(context);
    for (size_t i = 0; i < order.list.count; ++i) {
        if (!proc_matches(command, order.list.names[i])) continue;
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - kill[%s], %d\n", command, pid);
        kill(pid, order.signal);
    }
    return true;
}

int64_t now_ms()
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return int64_t(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

} // namespace

int CUTIL_IsProc(const char* name, int verbose)
{
    Presence wanted = {name, verbose != 0, false};
    ProcVisitor visitor = {.context = &wanted, .process = look_for, .vanished = print_vanished};
    if (verbose) {
        visitor.entry = trace_entry;
        visitor.considered = trace_considered;
    }
    if (scan_processes(kPresenceRule, visitor) < 0) {
        if (verbose) puts("CUTIL_IsProc error while open /proc");
        return -1;
    }
    return wanted.found;
}

int CUTIL_KillProc(const char* name, int signal)
{
    Order order = {name, signal};
    scan_processes(kSignalRule, {.context = &order, .process = send_signal});
    return 0;
}

int CUTIL_KillProcAll(const char* list_path, int signal)
{
    syslog(LOG_INFO, "[CUTIL_KillProcAll]\n");
    Fd file(open(list_path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - list open err[%s]\n", list_path);
        return -1;
    }
    ListOrder order = {.signal = signal, .list = {}};
    read_kill_list(file.get(), order.list);
    file.reset();
    if (scan_processes(kSignalRule, {.context = &order, .process = signal_each_match}) < 0)
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - opendir err[%s]\n", "/proc");
    return 0;
}

int CUTIL_WaitProcEnd(const char* name)
{
    int result = 0;
    const int64_t start = now_ms();
    for (int64_t now = start; now >= start && now - start < kEndLimitMs; now = now_ms()) {
        result = CUTIL_IsProc(name, 0);
        if (result == 0) break;
        usleep(kPollUs);
    }
    return result;
}
