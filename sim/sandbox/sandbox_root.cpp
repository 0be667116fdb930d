// The camera's root, put together by the sandbox's first process.
#include "sim/sandbox/sandbox_root.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

// Character devices that only the simulated drivers answer. What is bound there is the null device:
// the name exists and is a character device, as scripts and stat() want it.
constexpr const char* kSimulated[] = {"watchdog", "ds1339",  "hi3516_reg", "mem",        "gpioi2c", "gpiospi",
                                      "ttyAMA1",  "ttyAMA2", "acodec",     "sys",        "vb",      "ai",
                                      "ao",       "aenc",    "adec",       "mmz_userdev"};
constexpr const char* kHostDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};
// Of the process file system, what reaches the whole machine.
constexpr const char* kReadOnlyProc[] = {"/proc/sys", "/proc/sysrq-trigger", "/proc/irq", "/proc/bus",
                                         "/proc/fs"};

void try_mount(const std::string& source, const std::string& target, const char* type, unsigned long flags,
               const char* data = nullptr)
{
    if (mount(source.c_str(), target.c_str(), type, flags, data) < 0)
        fail("cannot mount %s on %s: %s", source.c_str(), target.c_str(), strerror(errno));
}

// Flags that a bind inherits and that only its owner may take away.
unsigned long locked_flags(const std::string& path)
{
    struct statvfs st;
    if (statvfs(path.c_str(), &st) < 0) return 0;
    unsigned long flags = 0;
    if (st.f_flag & ST_NOSUID) flags |= MS_NOSUID;
    if (st.f_flag & ST_NODEV) flags |= MS_NODEV;
    if (st.f_flag & ST_NOEXEC) flags |= MS_NOEXEC;
    if (st.f_flag & ST_NOATIME) flags |= MS_NOATIME;
    if (st.f_flag & ST_RELATIME) flags |= MS_RELATIME;
    return flags;
}

void bind(const std::string& source, const std::string& target, bool writable)
{
    try_mount(source, target, nullptr, MS_BIND | MS_REC);
    if (!writable)
        try_mount("none", target, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | locked_flags(target));
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
    Builder(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan)
        : camera_(camera), pieces_(pieces), plan_(plan), root_(camera.path("root"))
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
        etc();
        for (const auto& m : plan_.media) medium(m);
        enter();
    }

private:
    void place(const std::string& source, const std::string& inside, bool writable = false)
    {
        make_place(source, root_ + inside);
        bind(source, root_ + inside, writable);
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
        make_folders(root_ + "/dev");
        try_mount("dev", root_ + "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755,size=1m");
        for (const char* name : kHostDevices) place(text("/dev/%s", name), text("/dev/%s", name), true);
        for (const char* name : kSimulated) place("/dev/null", text("/dev/%s", name), true);
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

    // Process numbers may be chosen in the camera; the other switches of /proc/sys may not be touched:
    // the host's root is root here.
    void process_files()
    {
        make_folders(root_ + "/proc");
        try_mount("proc", root_ + "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
        const std::string numbers = root_ + "/proc/sys/kernel/ns_last_pid";
        Fd last_pid(open(numbers.c_str(), O_PATH | O_CLOEXEC));
        for (const char* name : kReadOnlyProc)
            if (exists(root_ + name)) bind(root_ + name, root_ + name, false);
        if (last_pid) try_mount(text("/proc/self/fd/%d", last_pid.get()), numbers, nullptr, MS_BIND);
    }

    // As large as its flash partition, so that it can be full.
    void etc()
    {
        make_folders(root_ + "/etc");
        const auto& p = camera_.partition("mtd3");
        try_mount("/dev/mtdblock3", root_ + "/etc", "tmpfs", MS_NOSUID | MS_NODEV,
                  text("mode=755,size=%llu", (unsigned long long)p.size).c_str());
    }

    void medium(const Medium& m)
    {
        const std::string place = root_ + "/mnt/" + m.slot;
        make_folders(place);
        try_mount("/dev/" + m.slot, place, "tmpfs", MS_NOSUID | MS_NODEV | (m.read_only ? MS_RDONLY : 0),
                  text("mode=755,size=%llu", (unsigned long long)m.size).c_str());
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
    const std::string root_;
};

} // namespace

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
    return out;
}

Medium parse_medium(const std::string& words)
{
    const auto parts = split(words, '=');
    const auto sizes = split(parts.size() == 2 ? parts[1] : "", ',');
    const bool slot = parts[0] == "sd" || parts[0] == "usb";
    if (!slot || sizes.size() > 2 || (sizes.size() == 2 && sizes[1] != "ro"))
        fail("--medium %s: write it as sd=16M, usb=64M or sd=16M,ro", words.c_str());
    return {parts[0], parse_size(sizes[0], "--medium"), sizes.size() == 2};
}

void build_root(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan)
{
    Builder(camera, pieces, plan).build();
}

} // namespace vcam
