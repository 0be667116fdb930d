// mount and umount: JFFS2 from the simulated flash, everything else by busybox.
#include "sim/guest/flash_mounts.hpp"
#include "sim/guest/guest.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

namespace vcam {
namespace {

int by_busybox(int argc, char** argv)
{
    std::vector<char*> words(argv, argv + argc);
    words.push_back(nullptr);
    execv("/bin/busybox", words.data());
    fprintf(stderr, "%s: no /bin/busybox: %s\n", argv[0], strerror(errno));
    return 127;
}

std::string command_line(int argc, char** argv)
{
    return join(std::vector<std::string>(argv + 1, argv + argc), " ");
}

std::string without_slash(std::string path)
{
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// Where the flash's block device is mounted, the newest last.
std::vector<std::string> mounts_of(const std::string& device)
{
    std::vector<std::string> folders;
    for (const auto& line : split(raw::read_text("/proc/mounts"), '\n'))
        if (const auto words = split(line, ' '); words.size() > 1 && words[0] == device)
            folders.push_back(words[1]);
    return folders;
}

void note_mount(const Camera& camera, const std::string& target, const Partition& p)
{
    append_file(camera.path("mounts"), text("%s %s\n", target.c_str(), p.name.c_str()));
}

// 0 or an errno, as the kernel's mount would answer.
int mount_jffs2(const Camera& camera, const std::string& device, const std::string& target)
{
    constexpr std::string_view kBlock = "/dev/mtdblock";
    if (!starts_with(device, kBlock) || !exists(device)) return ENOENT;
    const auto& p = camera.partition("mtd" + device.substr(kBlock.size()));
    if (const auto there = mounts_of(device); !there.empty()) { // the kernel has one file system a partition
        if (std::find(there.begin(), there.end(), target) != there.end()) return EBUSY;
        if (mount(there.back().c_str(), target.c_str(), nullptr, MS_BIND, nullptr) < 0) return errno;
        note_mount(camera, target, p);
        return 0;
    }
    const int served = mount_served(p.name, [&](const char* type, const std::string& options) {
        return mount(device.c_str(), target.c_str(), type, MS_NOSUID | MS_NODEV, options.c_str()) < 0 ? errno
                                                                                                      : 0;
    });
    if (served == 0) note_mount(camera, target, p);
    if (served >= 0) return served;
    std::string size = text("mode=755,size=%llu", (unsigned long long)p.size);
    if (mount(device.c_str(), target.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, size.c_str()) < 0) return errno;
    try {
        unpack_image(camera.image(p), p, target);
    } catch (const Error& e) {
        fprintf(stderr, "mount: %s\n", e.what());
        umount2(target.c_str(), MNT_DETACH);
        return EIO;
    }
    note_mount(camera, target, p);
    return 0;
}

} // namespace

int mount_main(int argc, char** argv)
{
    if (argc > 1) note_event("mount", command_line(argc, argv));
    const bool jffs2 = argc == 5 && strcmp(argv[1], "-t") == 0 && strcmp(argv[2], "jffs2") == 0;
    if (!jffs2) return by_busybox(argc, argv);
    int error = mount_jffs2(Camera(kStateInside), argv[3], without_slash(argv[4]));
    if (!error) return 0;
    fprintf(stderr, "mount: mounting %s on %s failed: %s\n", argv[3], argv[4], strerror(error));
    return 255;
}

// The preloaded umount2 writes a JFFS2 mount back and tells the journal.
int umount_main(int argc, char** argv)
{
    const std::string option = argc == 3 ? argv[1] : "";
    const bool known = argc == 2 ? argv[1][0] != '-' : option == "-l" || option == "-f";
    if (!known) return by_busybox(argc, argv);
    const char* target = argv[argc - 1];
    const int flags =
        option == "-l" ? MNT_DETACH : 0; // -f would cut off the served file system; JFFS2 takes no notice
    if (umount2(target, flags) == 0) return 0;
    fprintf(stderr, "umount: can't unmount %s: %s\n", target, strerror(errno));
    return 1;
}

int ifconfig_main(int argc, char** argv)
{
    if (argc > 1) note_event("ifconfig", command_line(argc, argv));
    return by_busybox(argc, argv);
}

} // namespace vcam
