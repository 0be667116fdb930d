// One scan of the process list, which all that look for processes share.
#include "service/proc_scan.hpp"
#include "common/base/fd.hpp"
#include "common/base/parse_int.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>

namespace zep {

namespace {

constexpr size_t kCommandSize = 256 + 1;

bool all_digits(const char* name) { return *name != '\0' && name[strspn(name, "0123456789")] == '\0'; }

// The first argument as the rule reads it; what follows it in the file is of no interest.
void read_command(int fd, const ProcScanRule& rule, char (&command)[kCommandSize])
{
    ssize_t got;
    do got = read(fd, command, std::min(rule.length, kCommandSize - 1));
    while (got < 0 && errno == EINTR);
    command[got > 0 ? got : 0] = '\0';
    if (!rule.first_line) return;
    if (char* feed = strchr(command, '\n')) feed[1] = '\0';
}

// False ends the scan.
bool visit(int pid, const ProcScanRule& rule, const ProcVisitor& visitor)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    if (visitor.considered) visitor.considered(visitor.context, pid, path);
    Fd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        if (visitor.vanished) visitor.vanished(visitor.context, path);
        return true;
    }
    char command[kCommandSize];
    read_command(file.get(), rule, command);
    if (command[0] == '\0') return true; // a kernel thread
    return visitor.process(visitor.context, pid, command);
}

} // namespace

int scan_processes(const ProcScanRule& rule, const ProcVisitor& visitor)
{
    DIR* folder = opendir("/proc");
    if (!folder) return -1;
    bool more = true;
    while (more) {
        const dirent* entry = readdir(folder);
        if (!entry) break;
        if (visitor.entry) visitor.entry(visitor.context, entry->d_name);
        if (!all_digits(entry->d_name)) continue;
        int pid = parse_int(entry->d_name);
        if (pid >= rule.lowest_pid) more = visit(pid, rule, visitor);
    }
    return closedir(folder);
}

bool proc_matches(const char* command, const char* name) { return strncmp(command, name, strlen(name)) == 0; }

} // namespace zep
