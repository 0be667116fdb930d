// vcam put, get: files into a camera that is off, and out of it.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/vcam/settings.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

// A camera path, and whether the flash holds it while the camera is off.
struct Place {
    bool in_flash;
    std::string path; // below /etc, or below the root
};

Place place_of(const std::string& inside)
{
    if (!starts_with(inside, "/"))
        fail("'%s': name an absolute path in the camera, such as /tmp/pkg", inside.c_str());
    const std::string clean = fs::path(inside).lexically_normal().string();
    if (clean == "/etc" || starts_with(clean, "/etc/")) return {true, clean.substr(strlen("/etc"))};
    return {false, clean};
}

// Where an existing path of a tree lies on the host, links followed as inside the tree: an absolute
// link of the camera never leads to the host's file of that name. Empty when there is none.
std::string find_in(const std::string& tree, const std::string& inside)
{
    Fd top(open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_IN_ROOT;
    const std::string relative = inside.empty() ? "/" : inside;
    Fd found(top ? int(syscall(SYS_openat2, top.get(), relative.c_str(), &how, sizeof how)) : -1);
    if (!found) return "";
    return fs::read_symlink(text("/proc/self/fd/%d", found.get())).string();
}

// The same for a path to be written: what is missing of its folders is made, its last link, if it is
// one, is not followed.
std::string place_in(const std::string& tree, const fs::path& inside)
{
    if (!inside.has_relative_path()) return find_in(tree, "/");
    const std::string parent = inside.parent_path().string();
    std::string folder = find_in(tree, parent);
    if (folder.empty()) {
        folder = place_in(tree, parent);
        if (exists(folder)) fail("%s is a link to nothing in the camera", parent.c_str());
        make_folders(folder);
    }
    return folder + "/" + inside.filename().string();
}

// What stands at the target is replaced, never written through.
void copy_one(const std::string& from, const std::string& to)
{
    if (fs::is_directory(fs::symlink_status(from))) return make_folders(to);
    if (!fs::is_directory(fs::symlink_status(to))) fs::remove(to);
    fs::copy(from, to, fs::copy_options::copy_symlinks);
}

void copy(const std::string& from, const std::string& to)
try {
    if (fs::is_symlink(from) || !fs::is_directory(from)) {
        // A file is meant by its name, wherever the link to it stands.
        copy_one(fs::canonical(from).string(), to);
        return;
    }
    make_folders(to);
    for (const auto& [name, entry] : list_tree(from)) copy_one(from + "/" + name, to + "/" + name);
} catch (const fs::filesystem_error& e) {
    fail("cannot copy %s to %s: %s", from.c_str(), to.c_str(), e.code().message().c_str());
}

std::string with_name(const std::string& target, const std::string& source)
{
    const bool folder = fs::is_directory(fs::symlink_status(target));
    return folder && !fs::is_directory(source) ? target + "/" + fs::path(source).filename().string() : target;
}

} // namespace

int put_main(const Arguments& arguments)
{
    auto words = parse_options(arguments, {});
    if (words.plain.size() < 2 || words.plain.size() > 3)
        fail("put: write it as: vcam put DIR FILE [/PATH/IN/CAMERA]");
    Camera camera(words.plain[0]);
    const std::string& source = words.plain[1];
    if (!exists(source)) fail("put: %s: %s", source.c_str(), strerror(ENOENT));
    std::string inside = words.plain.size() == 3 ? words.plain[2] : "/tmp/";
    if (inside.back() == '/') inside += fs::path(source).filename().string();
    Place place = place_of(inside);
    if (!place.in_flash) {
        copy(source, with_name(place_in(camera.root(""), place.path), source));
        return 0;
    }
    Fd held = camera.lock();
    SettingsFolder etc(camera);
    copy(source, with_name(place_in(etc.path(), place.path), source));
    etc.write_back();
    return 0;
}

int get_main(const Arguments& arguments)
{
    auto words = parse_options(arguments, {});
    if (words.plain.size() < 2 || words.plain.size() > 3)
        fail("get: write it as: vcam get DIR /PATH/IN/CAMERA [FILE]");
    Camera camera(words.plain[0]);
    Place place = place_of(words.plain[1]);
    SettingsFolder etc(camera);
    const std::string source = find_in(place.in_flash ? etc.path() : camera.root(""), place.path);
    if (source.empty()) fail("get: the camera has no %s", words.plain[1].c_str());
    if (words.plain.size() == 2 && fs::is_regular_file(source)) {
        write_all(STDOUT_FILENO, read_file(source), "standard output");
        return 0;
    }
    copy(source, with_name(words.plain.size() == 3 ? words.plain[2] : ".", source));
    return 0;
}

} // namespace vcam
