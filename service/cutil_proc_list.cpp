// Signals to all processes that a list file names.
#include "common/base/fd.hpp"
#include "service/cutil_proc.h"
#include "service/kill_list.hpp"
#include "service/proc_scan.hpp"

#include <csignal>
#include <fcntl.h>
#include <syslog.h>

namespace {

using namespace zep;

struct Order {
    int signal;
    KillList list;
};

bool signal_each_match(void* context, int pid, const char* command)
{
    const auto& order = *static_cast<const Order*>(context);
    for (size_t i = 0; i < order.list.count; ++i) {
        if (!proc_matches(command, order.list.names[i])) continue;
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - kill[%s], %d\n", command, pid);
        kill(pid, order.signal);
    }
    return true;
}

} // namespace

int CUTIL_KillProcAll(const char* list_path, int signal)
{
    syslog(LOG_INFO, "[CUTIL_KillProcAll]\n");
    Fd file(open(list_path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - list open err[%s]\n", list_path);
        return -1;
    }
    Order order = {.signal = signal, .list = {}};
    read_kill_list(file.get(), order.list);
    file.reset();
    if (scan_processes(kSignalRule, {.context = &order, .process = signal_each_match}) < 0)
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - opendir err[%s]\n", "/proc");
    return 0;
}
