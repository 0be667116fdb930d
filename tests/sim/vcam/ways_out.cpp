// Tries ways out of a camera, from inside and as its root; prints the name of each one that is open. Nothing
// of the host is changed where one is: calls carry arguments that the kernel refuses after the permission.
//
// ways_out HOST-PROCESS HOST-FILE: a process and a file that exist outside only.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <linux/nsfs.h>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/io.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/timex.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

pid_t outside_process;
const char* outside_file;

// Past the preload library, which answers some of these calls itself.
template<class... Words> long kernel(long number, Words... words) { return syscall(number, words...); }

bool opens(const std::string& path, int flags)
{
    const long fd = kernel(SYS_openat, AT_FDCWD, path.c_str(), flags, 0600);
    if (fd >= 0) kernel(SYS_close, fd);
    return fd >= 0;
}

const char* made_folder()
{
    static char name[] = "/tmp/way.XXXXXX";
    memcpy(name + sizeof name - 7, "XXXXXX", 6);
    return mkdtemp(name) ? name : "/tmp";
}

bool mounts(const char* source, const char* target, const char* type, unsigned long flags)
{
    return kernel(SYS_mount, source, target, type, flags, nullptr) == 0;
}

bool remount(const char* place) { return mounts("none", place, nullptr, MS_REMOUNT | MS_BIND); }

bool remount_host_files()
{
    return remount("/usr/bin") || remount("/usr/lib") || remount("/bin/zep") || remount("/bin/busybox");
}

bool remount_switches() { return remount("/proc/sys") || remount("/proc/irq") || remount("/proc/fs"); }

bool unmount_what_covers()
{
    for (const char* place : {"/usr/bin", "/proc/sys", "/proc", "/dev/mem", "/dev", "/run/vcam", "/"})
        if (kernel(SYS_umount2, place, MNT_DETACH) == 0) return true;
    return false;
}

bool remount_a_second_bind()
{
    const char* copy = made_folder();
    return mounts("/usr/bin", copy, nullptr, MS_BIND) && remount(copy);
}

bool remount_from_a_nested_namespace()
{
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && (remount_host_files() || remount_switches());
}

bool mount_fresh(const char* type) { return mounts(type, made_folder(), type, 0); }

bool control_groups()
{
    const bool own = unshare(CLONE_NEWCGROUP) == 0;
    return own || mount_fresh("cgroup2") || mount_fresh("cgroup");
}

bool make_devices()
{
    const std::string folder = made_folder();
    return kernel(SYS_mknodat, AT_FDCWD, (folder + "/memory").c_str(), S_IFCHR | 0600, makedev(1, 1)) == 0 ||
           kernel(SYS_mknodat, AT_FDCWD, (folder + "/disk").c_str(), S_IFBLK | 0600, makedev(8, 0)) == 0;
}

// A kernel may be built without the call.
bool refused(long result) { return result < 0 && (errno == EPERM || errno == ENOSYS); }

bool set_the_clock()
{
    timex wrong = {};
    wrong.modes = ADJ_TICK; // of 0 microseconds: invalid
    return !refused(kernel(SYS_adjtimex, &wrong));
}

// The files of /proc that are no process's own, opened and closed. One without a write permission for
// anybody has no write operation; the host's root opens it nevertheless.
bool write_machine_files()
{
    bool open = false;
    std::error_code error;
    constexpr auto kSkip = fs::directory_options::skip_permission_denied;
    for (const auto& top : fs::directory_iterator("/proc", kSkip, error)) {
        if (isdigit(top.path().filename().string()[0]) || top.is_symlink(error)) continue;
        auto check = [&](const fs::path& path) {
            const auto write = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
            const bool may = (fs::status(path, error).permissions() & write) != fs::perms::none;
            if (!may || path == "/proc/sys/kernel/ns_last_pid" || !opens(path, O_WRONLY)) return;
            printf("writable: %s\n", path.c_str());
            open = true;
        };
        if (top.is_regular_file(error)) check(top.path());
        if (!top.is_directory(error)) continue;
        for (const auto& entry : fs::recursive_directory_iterator(top.path(), kSkip, error))
            if (entry.is_regular_file(error)) check(entry.path());
    }
    return open;
}

bool write_host_files()
{
    for (const char* file : {"/bin/zep", "/bin/busybox", "/sbin/vcam-guest", "/proc/self/exe"})
        if (opens(file, O_WRONLY)) return true;
    for (const char* folder : {"/usr/bin", "/usr/lib", "/run/sim"})
        if (opens(folder, O_TMPFILE | O_WRONLY)) return true;
    return false;
}

bool memory_of_the_machine()
{
    struct stat st;
    return stat("/dev/mem", &st) == 0 && st.st_rdev != makedev(1, 3); // the null device's number
}

// Raw sockets work, but where nothing is to be heard.
bool network_of_the_host()
{
    bool found = false;
    if (struct if_nameindex* all = if_nameindex()) {
        for (auto* one = all; one->if_index; ++one) found = found || strcmp(one->if_name, "lo") != 0;
        if_freenameindex(all);
    }
    return found;
}

bool climb_out_of_a_changed_root()
{
    const int here = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (here < 0 || chroot(made_folder()) < 0 || fchdir(here) < 0) return false;
    for (int i = 0; i < 64; ++i)
        if (chdir("..") < 0) return false;
    return chroot(".") == 0 && opens(outside_file, O_RDONLY);
}

bool open_by_handle()
{
    alignas(file_handle) char room[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto* handle = reinterpret_cast<file_handle*>(room);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount_id = 0;
    const int place = open("/run/vcam", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return name_to_handle_at(place, "", handle, &mount_id, AT_EMPTY_PATH) == 0 &&
           open_by_handle_at(place, handle, O_PATH) >= 0;
}

bool outer_namespaces()
{
    const int own = open("/proc/self/ns/user", O_RDONLY | O_CLOEXEC);
    return own < 0 || ioctl(own, NS_GET_PARENT) >= 0;
}

// A terminal answers this on its own input; another descriptor must not even be asked.
bool type_into_the_terminal()
{
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const auto above = static_cast<unsigned long>(uint64_t(1) << 32); // the kernel drops it; 0 on 32 bits
    return !refused(kernel(SYS_ioctl, null, TIOCSTI, "")) ||
           !refused(kernel(SYS_ioctl, null, TIOCSTI | above, ""));
}

constexpr struct {
    const char* name;
    bool (*open)();
} kWays[] = {
    {"host files: write", write_host_files},
    {"host files: remount", remount_host_files},
    {"host files: remount a second bind", remount_a_second_bind},
    {"host files: remount in a nested namespace", remount_from_a_nested_namespace},
    {"host files: open by handle", open_by_handle},
    {"host files: climb out of a changed root", climb_out_of_a_changed_root},
    {"mounts: unmount what covers", unmount_what_covers},
    {"machine's switches: write", write_machine_files},
    {"machine's switches: core pattern", [] { return opens("/proc/sys/kernel/core_pattern", O_WRONLY); }},
    {"machine's switches: remount", remount_switches},
    {"machine's switches: uncovered proc", [] { return mounts("/proc", made_folder(), nullptr, MS_BIND); }},
    {"machine's switches: fresh proc", [] { return mount_fresh("proc"); }},
    {"machine's switches: fresh sys", [] { return mount_fresh("sysfs"); }},
    {"machine's switches: control groups", control_groups},
    {"machine's switches: kernel debugging", [] { return mount_fresh("debugfs"); }},
    {"machine's switches: kernel tracing", [] { return mount_fresh("tracefs"); }},
    {"machine's switches: kernel security", [] { return mount_fresh("securityfs"); }},
    {"devices: fresh dev", [] { return mount_fresh("devtmpfs"); }},
    {"devices: mknod", make_devices},
    {"devices: memory", memory_of_the_machine},
    {"devices: ports", [] { return !refused(kernel(SYS_iopl, 3)); }},
    {"devices: one port", [] { return !refused(kernel(SYS_ioperm, 0x80, 1, 1)); }},
    {"devices: terminal input", type_into_the_terminal},
    {"kernel: load a module", [] { return !refused(kernel(SYS_finit_module, -1, "", 0)); }},
    {"kernel: remove a module",
     [] { return !refused(kernel(SYS_delete_module, "no_such_module", O_NONBLOCK)); }},
    {"kernel: boot another", [] { return !refused(kernel(SYS_kexec_load, 0UL, 1UL << 20, nullptr, ~0UL)); }},
    // No magic number is 0.
    {"kernel: reboot", [] { return !refused(kernel(SYS_reboot, 0, 0, 0, nullptr)); }},
    {"kernel: clock", set_the_clock},
    {"kernel: accounting", [] { return !refused(kernel(SYS_acct, "/no/such/file")); }},
    {"kernel: swap", [] { return !refused(kernel(SYS_swapoff, "/no/such/file")); }},
    {"processes: signal", [] { return kernel(SYS_kill, outside_process, 0) == 0; }},
    {"processes: trace", [] { return kernel(SYS_ptrace, PTRACE_SEIZE, outside_process, 0, 0) == 0; }},
    {"processes: see", [] { return fs::exists("/proc/" + std::to_string(outside_process)); }},
    {"network: the host's", network_of_the_host},
    {"namespaces: the outer ones", outer_namespaces},
};

// Each in a process of its own: what one changes is not there for the next.
bool is_open(bool (*way)())
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const bool open = way();
        fflush(nullptr);
        _exit(open);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status != 0; // a probe that crashes has shown nothing
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    outside_process = atoi(argv[1]);
    outside_file = argv[2];
    const auto open = std::count_if(std::begin(kWays), std::end(kWays), [](const auto& way) {
        const bool found = is_open(way.open);
        if (found) printf("open: %s\n", way.name);
        return found;
    });
    printf("%zu tried, %td open\n", std::size(kWays), open);
    return open != 0;
}
