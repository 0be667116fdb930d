// Interposers: what a program asks of other programs and of the system. All of it is written into the
// journal; most of it then happens, because in the camera it is real.
#include "sim/clock/journal.hpp"
#include "sim/jffs2/mounts.hpp"
#include "sim/clock/power.hpp"
#include "sim/preload/planned.hpp"
#include "sim/base/raw.hpp"

#include <csignal>
#include <cstring>
#include <string>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace vcam;

namespace {

int unmount_now(const char* target, int flags)
{
    const bool flash = mounts::partition_at(target) >= 0;
    // The file system wrote every change to the flash as it was made; here that happens now, also
    // when the mount point then turns out to be busy.
    if (flash)
        if (const std::string error = mounts::sync(target); !error.empty()) journal::add("umount", error);
    const long result = ::syscall(SYS_umount2, target, flags);
    if (result == 0 && flash) mounts::remove(target);
    return int(result);
}

int unmount(const char* target, int flags)
{
    journal::add("umount", target);
    return run_command("umount", [&] { return unmount_now(target, flags); });
}

std::string signal_name(int number)
{
    const char* name = ::sigabbrev_np(number);
    return name ? std::string("SIG") + name : std::to_string(number);
}

// Argument 0 of a process, as the scanners of process lists see it.
std::string name_of(pid_t pid)
{
    std::string text = raw::read_text("/proc/" + std::to_string(pid) + "/cmdline");
    return text.substr(0, text.find('\0'));
}

} // namespace

VCAM_EXPORT int system(const char* command)
{
    auto run = [&] { return VCAM_NEXT(int(const char*), "system")(command); };
    if (!active() || !command) return run();
    journal::add("system", command);
    return run_command("system", run);
}

VCAM_EXPORT int umount(const char* target) noexcept
{
    if (!active() || !target) return VCAM_NEXT(int(const char*), "umount")(target);
    return unmount(target, 0);
}

VCAM_EXPORT int umount2(const char* target, int flags) noexcept
{
    if (!active() || !target) return VCAM_NEXT(int(const char*, int), "umount2")(target, flags);
    return unmount(target, flags);
}

VCAM_EXPORT int mount(const char* source, const char* target, const char* type, unsigned long flags,
                      const void* data) noexcept
{
    using Type = int(const char*, const char*, const char*, unsigned long, const void*);
    return run_command("mount", [&] { return VCAM_NEXT(Type, "mount")(source, target, type, flags, data); });
}

VCAM_EXPORT pid_t fork() noexcept
{
    return run_call("fork", [] { return VCAM_NEXT(pid_t(), "fork")(); });
}

VCAM_EXPORT int kill(pid_t pid, int number) noexcept
{
    // How the camera's own tools tell its first process to end is no event of the camera.
    const bool to_first = pid == 1 && number >= SIGRTMIN;
    if (active() && number != 0 && !to_first) {
        const std::string name = pid > 0 ? " " + name_of(pid) : "";
        journal::add("kill", signal_name(number) + " " + std::to_string(pid) + name);
    }
    return VCAM_NEXT(int(pid_t, int), "kill")(pid, number);
}

VCAM_EXPORT int reboot(int how) noexcept
{
    if (!active()) return VCAM_NEXT(int(int), "reboot")(how);
    if (unsigned(how) == RB_ENABLE_CAD || unsigned(how) == RB_DISABLE_CAD) return 0;
    const bool off = unsigned(how) == RB_POWER_OFF || unsigned(how) == RB_HALT_SYSTEM;
    journal::add("reboot", off ? "poweroff" : "reboot");
    power::lose(off ? power::Loss::off : power::Loss::reboot);
    return 0;
}
