// The list of JFFS2 mounts, and writing one back.
#include "sim/jffs2/mounts.hpp"
#include "sim/jffs2/jffs2.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <cstring>
#include <linux/magic.h>
#include <sstream>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam::mounts {
namespace {

std::string plain(std::string folder)
{
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
}

// Served by the camera's first process, which has written all but what waits for its page to fill.
bool is_served(const std::string& folder)
{
    struct statfs fs = {};
    return ::statfs(folder.c_str(), &fs) == 0 && fs.f_type == FUSE_SUPER_MAGIC;
}

} // namespace

int partition_at(const std::string& folder)
{
    std::istringstream list(raw::read_text(state::path("mounts")));
    int found = -1;
    for (std::string where, what; list >> where >> what;)
        if (int number = 0; plain(where) == plain(folder) && sscanf(what.c_str(), "mtd%d", &number) == 1)
            found = number;
    return found;
}

std::string sync(const std::string& folder)
{
    const int number = partition_at(folder);
    if (number < 0) return folder + ": not mounted";
    if (is_served(folder)) {
        const raw::Fd top(raw::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return top && ::syscall(SYS_fsync, top.get()) == 0 ? "" : folder + ": " + strerror(errno);
    }
    const auto part = state::partition(unsigned(number));
    return jffs2::sync(part.image(), part.erase_size, plain(folder));
}

void remove(const std::string& folder)
{
    std::istringstream list(raw::read_text(state::path("mounts")));
    std::string kept;
    for (std::string where, what; list >> where >> what;)
        if (plain(where) != plain(folder)) kept += where + " " + what + "\n";
    const raw::Fd fd(raw::open(state::path("mounts").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (fd) raw::write_all(fd.get(), kept.data(), kept.size());
}

} // namespace vcam::mounts
