// The list of JFFS2 mounts, and writing one back.
#include "sim/jffs2/mounts.hpp"
#include "sim/jffs2/jffs2.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdio>
#include <fcntl.h>
#include <sstream>

namespace vcam::mounts {
namespace {

std::string plain(std::string folder)
{
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
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
