// fuser: the processes that use a file, or with -m anything on its file system.
#include "sim/guest/guest.hpp"
#include "sim/base/text.hpp"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace vcam {
namespace {

struct Wanted {
    dev_t device;
    ino_t inode;
    bool whole_device;
};

std::vector<std::string> names_in(const std::string& folder)
{
    std::vector<std::string> out;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
    while (const dirent* entry = dir ? readdir(dir.get()) : nullptr)
        if (entry->d_name[0] != '.') out.emplace_back(entry->d_name);
    return out;
}

bool is_wanted(const std::vector<Wanted>& wanted, dev_t device, ino_t inode)
{
    for (const auto& w : wanted)
        if (w.device == device && (w.whole_device || w.inode == inode)) return true;
    return false;
}

bool uses_link(const std::vector<Wanted>& wanted, const std::string& link)
{
    struct stat st;
    return stat(link.c_str(), &st) == 0 && is_wanted(wanted, st.st_dev, st.st_ino);
}

bool uses_map(const std::vector<Wanted>& wanted, const std::string& process)
{
    std::ifstream maps(process + "/maps");
    for (std::string line; std::getline(maps, line);) {
        unsigned major = 0, minor = 0;
        unsigned long long inode = 0;
        if (sscanf(line.c_str(), "%*s %*s %*s %x:%x %llu", &major, &minor, &inode) == 3 && inode &&
            is_wanted(wanted, makedev(major, minor), ino_t(inode)))
            return true;
    }
    return false;
}

bool uses(const std::vector<Wanted>& wanted, const std::string& process)
{
    for (const char* link : {"/cwd", "/exe", "/root"})
        if (uses_link(wanted, process + link)) return true;
    for (const auto& fd : names_in(process + "/fd"))
        if (uses_link(wanted, process + "/fd/" + fd)) return true;
    return uses_map(wanted, process);
}

} // namespace

int fuser_main(int argc, char** argv)
{
    bool whole_device = false;
    std::vector<Wanted> wanted;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-m") == 0) {
            whole_device = true;
            continue;
        }
        struct stat st;
        if (stat(argv[i], &st) < 0) fail("%s: %s", argv[i], strerror(errno));
        wanted.push_back({st.st_dev, st.st_ino, whole_device});
    }
    if (wanted.empty()) fail("usage: fuser [-m] FILE...");
    bool found = false;
    for (const auto& name : names_in("/proc")) {
        if (!isdigit(static_cast<unsigned char>(name[0])) || atoi(name.c_str()) == getpid()) continue;
        if (!uses(wanted, "/proc/" + name)) continue;
        printf("%s%s", found ? " " : "", name.c_str());
        found = true;
    }
    if (found) puts("");
    return found ? 0 : 1;
}

} // namespace vcam
