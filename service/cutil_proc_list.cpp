// Signals to all processes that a list file names.
#include "common/fd.hpp"
#include "common/line_reader.hpp"
#include "service/cutil_proc.h"
#include "service/proc_scan.hpp"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>

namespace {

using namespace zep;

struct KillList {
    int signal;
    size_t count;
    char names[CUTIL_KILL_LIST_NAMES][CUTIL_KILL_LIST_NAME_SIZE];
};

void add_name(KillList& list, char* line)
{
    if (strlen(line) >= CUTIL_KILL_LIST_NAME_SIZE) return;
    line[strcspn(line, "\r\n")] = '\0';
    strcpy(list.names[list.count++], line);
}

void read_names(KillList& list, int fd)
{
    LineReader reader(fd);
    char line[256];
    bool tail = false; // the rest of a line longer than the buffer must not pass for a name
    ssize_t length;
    while (list.count < CUTIL_KILL_LIST_NAMES && (length = reader.next(line)) > 0) {
        bool whole = line[length - 1] == '\n' || length < ssize_t(sizeof line) - 1;
        if (!tail && whole) add_name(list, line);
        tail = !whole;
    }
}

bool signal_each_match(void* context, int pid, const char* command)
{
    const auto& list = *static_cast<const KillList*>(context);
    for (size_t i = 0; i < list.count; ++i) {
        if (!proc_matches(command, list.names[i])) continue;
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - kill[%s], %d\n", command, pid);
        kill(pid, list.signal);
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
    KillList list = {.signal = signal, .count = 0, .names = {}};
    read_names(list, file.get());
    file.reset();
    if (scan_processes(kSignalRule, {.context = &list, .process = signal_each_match}) < 0)
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - opendir err[%s]\n", "/proc");
    return 0;
}
