// Entry of vcam-guest: the name it is started under selects the tool.
#include "sim/guest/guest.hpp"
#include "sim/guest/init.hpp"

#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <unistd.h>

namespace {

using namespace vcam;

struct Tool {
    const char* name;
    int (*main)(int argc, char** argv);
};
constexpr Tool kTools[] = {
    {"init", init_main},         {"mount", mount_main},   {"umount", umount_main},
    {"insmod", insmod_main},     {"rmmod", rmmod_main},   {"lsmod", lsmod_main},
    {"ifconfig", ifconfig_main}, {"reg", reg_main},       {"reboot", reboot_main},
    {"poweroff", poweroff_main}, {"halt", poweroff_main}, {"sleep", sleep_main},
    {"usleep", usleep_main},     {"date", date_main},     {"fuser", fuser_main},
    {"udpcat", udpcat_main},
};
static_assert(std::size(kTools) == std::size(kGuestLinks), "each tool has a link and each link a tool");

// init ends every process that it can reach, and reboot signals process 1: neither may be the host's.
bool in_camera(const char* tool)
{
    return access("/run/vcam/camera.conf", F_OK) == 0 && (strcmp(tool, "init") != 0 || getpid() == 1);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 1) return 1;
    const char* slash = strrchr(argv[0], '/');
    const char* name = slash ? slash + 1 : argv[0];
    for (const Tool& tool : kTools) {
        if (strcmp(name, tool.name) != 0) continue;
        if (!in_camera(name)) {
            fprintf(stderr, "%s: works inside a virtual camera only, see vcam run\n", name);
            return 1;
        }
        try {
            return tool.main(argc, argv);
        } catch (const std::exception& e) {
            fprintf(stderr, "%s: %s\n", name, e.what());
            return 1;
        }
    }
    return vcam::daemon_main(argc, argv);
}
