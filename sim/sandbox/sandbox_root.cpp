// The camera's root: what its owner mounts, and what the camera may unmount.
#include "sim/sandbox/sandbox_root.hpp"
#include "sim/base/device_file.hpp"
#include "sim/base/text.hpp"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

// Character devices that only the simulated drivers answer. What is bound there is the null device:
// the name exists and is a character device, as scripts and stat() want it.
constexpr const char* kSimulated[] = {"watchdog", "ds1339",  "hi3516_reg", "mem",        "gpioi2c", "gpiospi",
                                      "ttyAMA1",  "ttyAMA2", "acodec",     "sys",        "vb",      "ai",
                                      "ao",       "aenc",    "adec",       "mmz_userdev"};
constexpr uint64_t kLeastMedium = 4096; // a page; to a file system in memory 0 means without a limit
constexpr uint64_t kMostMedium = uint64_t(2048) << 30; // the largest card of the SDXC class
constexpr const char* kHostDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};

void try_mount(const std::string& source, const std::string& target, const char* type, unsigned long flags,
               const char* data = nullptr)
{
    if (mount(source.c_str(), target.c_str(), type, flags, data) < 0)
        fail("cannot mount %s on %s: %s", source.c_str(), target.c_str(), strerror(errno));
}

void bind_mount(const std::string& source, const std::string& target, bool writable)
{
    try_mount(source, target, nullptr, MS_BIND | MS_REC);
    if (writable) return;
    // With all that is mounted below it, which a remount would leave writable.
    mount_attr read_only = {};
    read_only.attr_set = MOUNT_ATTR_RDONLY;
    if (mount_setattr(AT_FDCWD, target.c_str(), AT_RECURSIVE, &read_only, sizeof read_only) < 0)
        fail("cannot make %s read-only: %s", target.c_str(), strerror(errno));
}

// A place to bind on: a folder for a folder, an empty file for anything else.
void make_place(const std::string& source, const std::string& target)
{
    struct stat st;
    if (stat(source.c_str(), &st) < 0) fail("cannot bind %s: %s", source.c_str(), strerror(errno));
    if (S_ISDIR(st.st_mode)) return make_folders(target);
    make_folders(fs::path(target).parent_path().string());
    if (!exists(target)) write_file(target, "");
}

class Builder {
public:
    Builder(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan, pid_t init)
        : camera_(camera), pieces_(pieces), plan_(plan), init_(init), root_(camera.path("root"))
    {
    }

    void build()
    {
        umask(022);
        try_mount("none", "/", nullptr, MS_REC | MS_PRIVATE);
        make_folders(root_);
        place(camera_.folder(), "/run/vcam", true); // first: later mounts do not show below it again
        try_mount(root_, root_, nullptr, MS_BIND | MS_REC);
        host_libraries();
        place(pieces_.busybox, "/bin/busybox");
        place(pieces_.zep, "/bin/zep");
        place(pieces_.guest, "/sbin/vcam-guest");
        place(pieces_.preload, "/run/sim");
        for (const auto& b : plan_.binds) place(b.host, b.inside, b.writable);
        devices();
        process_files();
        make_folders(own_folder("/etc"));
        for (const auto& m : plan_.media) make_folders(own_folder("/mnt/" + m.slot));
        enter();
    }

private:
    // A path below the root, on which something is mounted. A program of an earlier run may have left a link
    // there, which here would lead into the host.
    std::string own_folder(const std::string& inside) const
    {
        const std::string real = fs::weakly_canonical(root_ + inside).string();
        if (!starts_with(real, root_ + "/"))
            fail("%s is a link that leads out of the camera, to %s; remove it", (root_ + inside).c_str(),
                 real.c_str());
        return real;
    }

    void place(const std::string& source, const std::string& inside, bool writable = false)
    {
        make_place(source, own_folder(inside));
        bind_mount(source, root_ + inside, writable);
    }

    // /lib and its sisters are links on a merged host and folders on others; both are kept. The others have
    // the shell in /bin too, which is the camera's own here.
    void host_libraries()
    {
        for (const char* name : {"/usr/bin", "/usr/lib", "/usr/lib32", "/usr/lib64", "/usr/libx32"})
            if (fs::is_directory(name)) place(name, name);
        for (const char* name : {"/lib", "/lib32", "/lib64", "/libx32"}) {
            if (fs::is_symlink(name))
                link_like_host(name);
            else if (fs::is_directory(name))
                place(name, name);
        }
        const std::string shell = fs::canonical("/bin/sh").string();
        if (!starts_with(shell, "/usr/")) place(shell, shell);
    }

    void link_like_host(const std::string& name)
    {
        if (!exists(root_ + name)) fs::create_symlink(fs::read_symlink(name), root_ + name);
    }

    void devices()
    {
        make_folders(own_folder("/dev"));
        try_mount("dev", root_ + "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755,size=1m");
        for (const char* name : kHostDevices) place(text("/dev/%s", name), text("/dev/%s", name), true);
        for (const char* name : kSimulated) place("/dev/null", text("/dev/%s", name), true);
        for (const auto& device : device_file::of(camera_.folder()))
            place("/dev/null", device.record.path, true);
        for (const auto& p : camera_.partitions()) {
            place(camera_.image(p), "/dev/" + p.name);
            place(camera_.image(p), "/dev/mtdblock" + p.name.substr(3));
        }
        for (const char* name : {"/dev/pts", "/dev/shm"}) make_folders(root_ + name);
        try_mount("devpts", root_ + "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=620");
        try_mount("shm", root_ + "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=64m");
        fs::create_symlink("pts/ptmx", root_ + "/dev/ptmx");
        fs::create_symlink("/proc/self/fd", root_ + "/dev/fd");
        fs::create_symlink("/proc/self/fd/0", root_ + "/dev/stdin");
        fs::create_symlink("/proc/self/fd/1", root_ + "/dev/stdout");
        fs::create_symlink("/proc/self/fd/2", root_ + "/dev/stderr");
    }

    // The process file system shows the process space of its mounter, so a member of it mounts: a child, as
    // this process itself stays outside.
    void process_files()
    {
        make_folders(own_folder("/proc"));
        Fd space(int(syscall(SYS_pidfd_open, init_, 0)));
        if (!space || setns(space.get(), CLONE_NEWPID) < 0)
            fail("cannot enter the camera's process space: %s", strerror(errno));
        const pid_t child = fork();
        if (child < 0) fail("no process: %s", strerror(errno));
        if (child == 0) _exit(mounted_process_files() ? 0 : 1);
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (status != 0) throw AlreadySaid();
    }

    bool mounted_process_files() const
    try {
        try_mount("proc", root_ + "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
        // With a control group namespace of its own, the host's root could mount and change the host's groups.
        const std::string groups = root_ + "/proc/sys/user/max_cgroup_namespaces";
        if (exists(groups)) write_file(groups, "0\n");
        lock_machine_files();
        return true;
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: the sandbox does not start: %s\n", e.what());
        return false;
    }

    // Of the process file system only the processes' own folders stay writable, and the switch by which
    // process numbers are chosen: the host's root is root here, and owns the switches of the whole machine.
    void lock_machine_files() const
    {
        const std::string proc = root_ + "/proc";
        const std::string numbers = proc + "/sys/kernel/ns_last_pid";
        Fd last_pid(open(numbers.c_str(), O_PATH | O_CLOEXEC));
        for (const auto& entry : fs::directory_iterator(proc)) {
            const std::string path = entry.path().string();
            struct stat st;
            if (isdigit(static_cast<unsigned char>(entry.path().filename().string()[0])) ||
                lstat(path.c_str(), &st) < 0 || S_ISLNK(st.st_mode))
                continue;
            if (S_ISDIR(st.st_mode) || (st.st_mode & 0222)) bind_mount(path, path, false);
        }
        if (last_pid) try_mount(text("/proc/self/fd/%d", last_pid.get()), numbers, nullptr, MS_BIND);
    }

    void enter()
    {
        if (chdir(root_.c_str()) < 0 || syscall(SYS_pivot_root, ".", ".") < 0)
            fail("cannot enter the camera's root %s: %s", root_.c_str(), strerror(errno));
        if (umount2(".", MNT_DETACH) < 0 || chdir("/") < 0)
            fail("cannot leave the host's root: %s", strerror(errno));
    }

    const Camera& camera_;
    const Pieces& pieces_;
    const SandboxPlan& plan_;
    const pid_t init_;
    const std::string root_;
};

void mount_medium(const Medium& m)
{
    try_mount("/dev/" + m.slot, "/mnt/" + m.slot, "tmpfs",
              MS_NOSUID | MS_NODEV | (m.read_only ? MS_RDONLY : 0),
              text("mode=755,size=%llu", (unsigned long long)m.size).c_str());
}

} // namespace

bool is_mounted_over(const std::string& inside)
{
    for (const char* own : {"/etc", "/dev", "/proc", "/run/vcam", "/run/sim"})
        if (inside == own || starts_with(inside, std::string(own) + "/")) return true;
    return false;
}

Bind parse_bind(const std::string& words, bool writable)
{
    size_t colon = words.rfind(':');
    std::string host = words.substr(0, colon);
    std::error_code error;
    auto real = fs::canonical(host, error);
    if (error) fail("cannot bind %s: %s", host.c_str(), error.message().c_str());
    Bind out{real.string(), "/run/bin/" + real.filename().string(), writable};
    if (colon != std::string::npos) out.inside = words.substr(colon + 1);
    if (!starts_with(out.inside, "/")) fail("cannot bind at '%s': not an absolute path", out.inside.c_str());
    out.inside = fs::path(out.inside).lexically_normal().string();
    if (out.inside == "/") fail("cannot bind at /, the camera's root; name a place in it");
    if (is_mounted_over(out.inside))
        fail("cannot bind at %s: the camera mounts a file system of its own there; name another place",
             out.inside.c_str());
    return out;
}

Medium parse_medium(const std::string& words)
{
    const auto parts = split(words, '=');
    const auto sizes = split(parts.size() == 2 ? parts[1] : "", ',');
    const bool slot = parts[0] == "sd" || parts[0] == "usb";
    if (!slot || sizes.size() > 2 || (sizes.size() == 2 && sizes[1] != "ro"))
        fail("--medium %s: write it as sd=16M, usb=64M or sd=16M,ro", words.c_str());
    const uint64_t size = parse_size(sizes[0], "--medium");
    if (size < kLeastMedium || size > kMostMedium)
        fail("--medium %s: a medium has 4K to 2048G", words.c_str());
    return {parts[0], size, sizes.size() == 2};
}

void build_root(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan, pid_t init)
{
    Builder(camera, pieces, plan, init).build();
}

void mount_media(const SandboxPlan& plan)
{
    for (const auto& m : plan.media) mount_medium(m);
}

} // namespace vcam
