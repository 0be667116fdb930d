// vcam put, get: files into a camera that is off, and out of it.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/sandbox/sandbox.hpp"
#include "sim/sandbox/tmp_memory.hpp"
#include "sim/vcam/settings.hpp"
#include "sim/base/text.hpp"
#include "tools/cli/output_file.hpp"

#include <algorithm>
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
        wrong_use(text("'%s': name an absolute path in the camera, such as /tmp/pkg", inside.c_str()));
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

// Whether the folder is the path or holds it.
bool holds(const fs::path& folder, const fs::path& path)
{
    const auto [mismatch, unused] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    return mismatch == folder.end();
}

// A link to a file means that file; links inside a folder are copied as links.
std::string meant(const std::string& from)
{
    return fs::is_directory(from) ? from : fs::canonical(from).string();
}

void check_kind(const std::string& from)
{
    const auto kind = fs::symlink_status(from).type();
    if (kind != fs::file_type::regular && kind != fs::file_type::directory && kind != fs::file_type::symlink)
        fail("%s is neither a file nor a folder nor a link; name one that is", from.c_str());
}

// Calls copy_one(from, to) for a file or link, or for each entry of a folder, folders first.
template<class CopyOne> void copy(const std::string& source, const std::string& to, CopyOne copy_one)
try {
    const std::string from = meant(source);
    if (!fs::is_directory(fs::symlink_status(from)) && !fs::is_directory(from)) return copy_one(from, to);
    const auto entries = list_tree(from);
    for (const auto& [name, entry] : entries) check_kind(from + "/" + name);
    make_folders(to);
    for (const auto& [name, entry] : entries) {
        const bool folder = fs::is_directory(fs::symlink_status(from + "/" + name));
        if (folder && fs::is_symlink(fs::symlink_status(to + "/" + name)))
            fail("%s/%s is a link where a folder belongs; remove it", to.c_str(), name.c_str());
        copy_one(from + "/" + name, to + "/" + name);
    }
} catch (const fs::filesystem_error& e) {
    fail("cannot copy %s to %s: %s", source.c_str(), to.c_str(), e.code().message().c_str());
}

// Into the camera: what stands at the target is replaced, never written through.
void put_one(const std::string& from, const std::string& to)
{
    check_kind(from);
    if (fs::is_directory(fs::symlink_status(from))) return make_folders(to);
    if (!fs::is_directory(fs::symlink_status(to))) fs::remove(to);
    fs::copy(from, to, fs::copy_options::copy_symlinks);
}

// Out of the camera, where the host's files are.
struct Getter {
    std::string target; // as named: only this link is followed, not one that an earlier get has copied
    bool force;
    uint64_t most; // bytes of one file

    void get_link(const std::string& from, const std::string& to) const
    {
        if (exists(to) && !force)
            fail("%s: exists already; name another place, or replace it with --force", to.c_str());
        if (exists(to)) fs::remove(to);
        fs::copy_symlink(from, to);
    }

    void get_file(const std::string& from, const std::string& to) const
    {
        const auto mode = mode_t(fs::status(from).permissions()) & 0777;
        const uint64_t size = fs::file_size(from);
        if (size > most)
            fail("get: the file has %llu bytes, more than %llu; vcam get without --most fetches it",
                 (unsigned long long)size, (unsigned long long)most);
        cli::OutputFile output(to, {nullptr, nullptr, force, mode});
        const Mapped bytes(from);
        output.write(bytes.data(), bytes.size());
        output.commit();
    }

    void operator()(const std::string& from, const std::string& to) const
    {
        check_kind(from);
        if (fs::is_directory(fs::symlink_status(from))) return make_folders(to);
        if (fs::is_symlink(from)) return get_link(from, to);
        if (to != target && fs::is_symlink(fs::symlink_status(to))) {
            if (!force)
                fail("%s: exists already; name another place, or replace it with --force", to.c_str());
            fs::remove(to);
        }
        get_file(from, to);
    }
};

// The name that "." and "folder/" have as well.
std::string name_of(const std::string& path)
{
    fs::path full = fs::absolute(path).lexically_normal();
    if (!full.has_filename()) full = full.parent_path();
    return full.filename().string();
}

// The place of a tree for a source of the host, as the camera sees it: a link to a folder is that folder of the
// camera, never the host's of the same name.
std::string put_place(const std::string& tree, const std::string& inside, const std::string& source)
{
    const bool folder = fs::is_directory(source);
    const std::string found = find_in(tree, inside);
    if (!found.empty() && fs::is_directory(found)) return folder ? found : found + "/" + name_of(source);
    const std::string target = place_in(tree, inside);
    if (folder && fs::is_symlink(fs::symlink_status(target)))
        fail("put: %s is a link to no folder of the camera; remove it", inside.c_str());
    return target;
}

void check_source(const Camera& camera, const std::string& source)
{
    std::error_code error;
    const fs::path real = fs::canonical(source, error);
    if (error) fail("put: %s: %s", source.c_str(), error.message().c_str());
    if (fs::is_directory(real) && holds(real, camera.folder()))
        fail("put: %s holds the camera itself; name files, or a folder beside the camera", source.c_str());
    if (!fs::is_directory(real)) check_kind(real.string());
}

} // namespace

int put_main(const Arguments& arguments)
{
    auto words = cli::parse(
        arguments,
        {{}, {kCamera, {"FILE", cli::Operand::file}, {"/PATH", cli::Operand::camera_path, false}}});
    Camera camera(words.plain[0]);
    const std::string& source = words.plain[1];
    check_source(camera, source);
    std::string inside = words.plain.size() == 3 ? words.plain[2] : "/tmp/";
    if (inside.back() == '/') inside += name_of(source);
    Place place = place_of(inside);
    if (!place.in_flash) {
        if (is_mounted_over(place.path))
            wrong_use(text("'%s': the camera mounts a file system of its own there; name another place",
                           inside.c_str()));
        const std::string target = put_place(camera.root(""), place.path, source);
        if (fs::is_directory(source) && holds(fs::canonical(source), target))
            fail("put: %s holds its own copy %s; put it elsewhere", source.c_str(), inside.c_str());
        note_tmp_late(camera);
        copy(source, target, put_one);
        return 0;
    }
    Fd held = camera.lock();
    SettingsFolder etc(camera);
    copy(source, put_place(etc.path(), place.path, source), put_one);
    etc.write_back();
    return 0;
}

int get_main(const Arguments& arguments)
{
    bool force = false;
    uint64_t most = UINT64_MAX;
    auto words = cli::parse(
        arguments, {{{"--force", nullptr, "replace files that are there", [&](auto&) { force = true; }},
                     {"--most", "BYTES", "refuse a file that is larger",
                      [&](auto& v) { most = uint64_t(cli::whole_number(v, 0, INT64_MAX)); }}},
                    {kCamera, {"/PATH", cli::Operand::camera_path}, {"FILE", cli::Operand::file, false}}});
    Camera camera(words.plain[0]);
    Place place = place_of(words.plain[1]);
    SettingsFolder etc(camera);
    const std::string source = find_in(place.in_flash ? etc.path() : camera.root(""), place.path);
    if (source.empty()) fail("get: the camera has no %s", words.plain[1].c_str());
    if (words.plain.size() == 2 && fs::is_regular_file(source)) {
        if (fs::file_size(source) > most)
            fail("get: the file has more than %llu bytes", (unsigned long long)most);
        write_all(STDOUT_FILENO, read_file(source), "standard output");
        return 0;
    }
    std::string target = words.plain.size() == 3 ? words.plain[2] : name_of(words.plain[1]);
    if (fs::is_directory(source) && exists(target) && !fs::is_directory(target))
        fail("get: %s is a folder, and %s is none; name another place", words.plain[1].c_str(),
             target.c_str());
    if (fs::is_directory(source) && target == "-")
        wrong_use(
            text("%s is a folder, which standard output cannot take; name a folder", words.plain[1].c_str()));
    if (target.empty()) fail("get: name a folder for the camera's %s", words.plain[1].c_str());
    if (words.plain.size() == 2 && exists(target) && !force)
        fail("get: %s exists already; name another folder, or add to it with --force", target.c_str());
    if (fs::is_directory(target) && !fs::is_directory(source)) target += "/" + name_of(words.plain[1]);
    copy(source, target, Getter{target, force, most});
    return 0;
}

} // namespace vcam
