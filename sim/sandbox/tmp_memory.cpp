// /tmp of the camera is memory.
//
// A run's files are known by inode and time of last change, which a write, a copy over the file or a new name moves.
#include "sim/sandbox/tmp_memory.hpp"
#include "sim/base/text.hpp"

#include <filesystem>
#include <set>
#include <sys/stat.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

constexpr const char* kList = "tmp.left"; // in the camera's folder, a line for each file
constexpr const char* kNotNoted = "all";  // from a start until the end is noted

std::string mark_of(const fs::path& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) < 0) return "";
    return text("%llu %lld.%09ld", (unsigned long long)st.st_ino, (long long)st.st_ctim.tv_sec,
                long(st.st_ctim.tv_nsec));
}

// Not followed: links that a program left in the place of the folders or the list.
std::vector<fs::path> all_in_tmp(const Camera& camera)
{
    const fs::path folder = camera.root("/tmp");
    std::error_code error;
    std::vector<fs::path> found;
    if (fs::is_symlink(fs::symlink_status(camera.root(""), error)) ||
        !fs::is_directory(fs::symlink_status(folder, error)))
        return found;
    const auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator at(folder, options, error), end; !error && at != end;
         at.increment(error))
        found.push_back(at->path());
    return found;
}

std::string list_of(const Camera& camera)
{
    struct stat st;
    if (lstat(camera.path(kList).c_str(), &st) < 0 || !S_ISREG(st.st_mode)) return "";
    return try_read_file(camera.path(kList)).value_or("");
}

} // namespace

std::vector<std::string> left_in_tmp(const Camera& camera)
{
    const auto lines = split(list_of(camera), '\n');
    const std::set<std::string> list(lines.begin(), lines.end());
    std::vector<std::string> left;
    if (list.empty()) return left;
    for (const fs::path& path : all_in_tmp(camera))
        if (list.contains(kNotNoted) || list.contains(mark_of(path)))
            left.push_back(path.string().substr(camera.root("").size()));
    return left;
}

void empty_tmp(const Camera& camera)
{
    const auto left = left_in_tmp(camera);
    std::error_code error; // a folder that holds something new stays
    for (auto path = left.rbegin(); path != left.rend(); ++path) fs::remove(camera.root(*path), error);
    replace_file(camera.path(kList), std::string(kNotNoted) + "\n");
}

void note_tmp(const Camera& camera)
{
    std::string list;
    for (const fs::path& path : all_in_tmp(camera)) list += mark_of(path) + "\n";
    replace_file(camera.path(kList), list);
}

void keep_tmp(const Camera& camera) { replace_file(camera.path(kList), ""); }

void note_tmp_late(const Camera& camera)
{
    if (!camera.running() && trim(list_of(camera)) == kNotNoted) note_tmp(camera);
}

} // namespace vcam
