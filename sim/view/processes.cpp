// The programs that run in a camera, and what is mounted in its slots.
#include "sim/view/processes.hpp"
#include "sim/base/text.hpp"

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr size_t kMostProcesses = 200; // shown of a camera that forks without end

// Files of /proc; a process may end at any moment.
std::string proc(pid_t pid, const char* name)
{
    try {
        return try_read_file(text("/proc/%d/%s", int(pid), name)).value_or("");
    } catch (const Error&) {
        return "";
    }
}

std::string command_of(pid_t pid)
{
    std::string words = proc(pid, "cmdline");
    while (!words.empty() && words.back() == '\0') words.pop_back();
    for (char& c : words)
        if (c == '\0') c = ' ';
    return one_line(words);
}

void add_children(std::vector<Process>& out, pid_t parent, int depth)
{
    const std::string children = proc(parent, text("task/%d/children", int(parent)).c_str());
    for (const auto& word : split(children, ' ')) {
        const pid_t pid = pid_t(atoi(word.c_str()));
        if (pid <= 0 || out.size() >= kMostProcesses) continue;
        const std::string command = command_of(pid);
        if (command.empty()) continue; // a zombie, or gone
        out.push_back({pid, depth, command});
        add_children(out, pid, depth + 1);
    }
}

bool is_first(pid_t pid)
{
    for (const auto& line : split(proc(pid, "status"), '\n'))
        if (starts_with(line, "NSpid:")) return line.ends_with("\t1");
    return false;
}

bool sees(pid_t pid, const std::string& folder)
{
    struct stat inside, outside;
    return stat(text("/proc/%d/root/run/vcam", int(pid)).c_str(), &inside) == 0 &&
           stat(folder.c_str(), &outside) == 0 && inside.st_dev == outside.st_dev &&
           inside.st_ino == outside.st_ino;
}

// Reads FOLDER/pid, 0 when there is none. A pipe or a link of that name is not opened.
pid_t noted_pid(const std::string& folder)
{
    const Fd fd(open((folder + "/pid").c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    char digits[16] = "";
    if (!fd || fstat(fd.get(), &st) < 0 || !S_ISREG(st.st_mode)) return 0;
    return read(fd.get(), digits, sizeof digits - 1) > 0 ? pid_t(atoi(digits)) : 0;
}

} // namespace

std::vector<Process> processes(pid_t init)
{
    std::vector<Process> out;
    if (init > 0) add_children(out, init, 0);
    return out;
}

std::vector<std::string> media_slots(pid_t init)
{
    std::vector<std::string> out;
    const std::string mounts = init > 0 ? proc(init, "mounts") : "";
    for (const char* slot : {"sd", "usb"})
        if (mounts.find(text(" /mnt/%s ", slot)) != std::string::npos) out.emplace_back(slot);
    return out;
}

Fd open_init(const std::string& folder, pid_t launcher)
{
    if (launcher > 0)
        for (const auto& word : split(proc(launcher, text("task/%d/children", int(launcher)).c_str()), ' ')) {
            const pid_t pid = pid_t(atoi(word.c_str()));
            Fd process(pid > 0 ? int(syscall(SYS_pidfd_open, pid, 0)) : -1);
            if (process && is_first(pid)) return process;
        }
    const pid_t pid = noted_pid(folder);
    Fd process(pid > 0 ? int(syscall(SYS_pidfd_open, pid, 0)) : -1);
    if (!process || !is_first(pid) || !sees(pid, folder)) return Fd();
    return process;
}

} // namespace vcam
