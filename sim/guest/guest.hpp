// The camera's own tools: one program under many names, as links in its /bin and /sbin.
#pragma once

#include "sim/base/camera.hpp"

namespace vcam {

// Where the links stand; any other name is a daemon's.
struct GuestLink {
    const char* name;
    const char* folder;
};
inline constexpr GuestLink kGuestLinks[] = {
    {"init", "/sbin"},   {"mount", "/bin"},     {"umount", "/bin"},    {"insmod", "/sbin"},
    {"rmmod", "/sbin"},  {"lsmod", "/sbin"},    {"ifconfig", "/sbin"}, {"reg", "/bin"},
    {"reboot", "/sbin"}, {"poweroff", "/sbin"}, {"halt", "/sbin"},     {"sleep", "/bin"},
    {"usleep", "/bin"},  {"date", "/bin"},      {"fuser", "/bin"},     {"udpcat", "/bin"},
};

int mount_main(int argc, char** argv);
int umount_main(int argc, char** argv);
int insmod_main(int argc, char** argv);
int rmmod_main(int argc, char** argv);
int lsmod_main(int argc, char** argv);
int ifconfig_main(int argc, char** argv);
int reg_main(int argc, char** argv);
int reboot_main(int argc, char** argv);
int poweroff_main(int argc, char** argv);
int sleep_main(int argc, char** argv);
int usleep_main(int argc, char** argv);
int date_main(int argc, char** argv);
int fuser_main(int argc, char** argv);
int udpcat_main(int argc, char** argv);

// A daemon that does nothing but be there: options --ready FD, --ignore-term, --hold FILE.
int daemon_main(int argc, char** argv);
// In a child of pid 1: runs the daemon under its name. `ready` is closed once it answers signals.
[[noreturn]] void become_daemon(const Daemon& daemon, int ready);

} // namespace vcam
