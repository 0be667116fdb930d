// vcam put, get: files into a camera that is off, and out of it.
#include "sim/box/camera.hpp"
#include "sim/box/commands.hpp"
#include "sim/box/options.hpp"
#include "sim/box/settings.hpp"
#include "sim/box/text.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace vcam {
namespace {

namespace fs = std::filesystem;

// Where a camera path lies while the camera is off; /etc is in the flash.
struct Place {
    bool in_flash;
    std::string path; // below /etc, or on the host
};

Place place_of(const Camera& camera, const std::string& inside)
{
    if (!starts_with(inside, "/"))
        fail("'%s': name an absolute path in the camera, such as /tmp/pkg", inside.c_str());
    const std::string clean = fs::path(inside).lexically_normal().string();
    if (clean == "/etc" || starts_with(clean, "/etc/")) return {true, clean.substr(strlen("/etc"))};
    return {false, camera.root(clean)};
}

void copy(const std::string& from, const std::string& to)
{
    std::error_code error;
    fs::create_directories(fs::path(to).parent_path(), error);
    fs::copy(from, to,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing |
                 fs::copy_options::copy_symlinks,
             error);
    if (error) fail("cannot copy %s to %s: %s", from.c_str(), to.c_str(), error.message().c_str());
}

std::string with_name(const std::string& target, const std::string& source)
{
    bool folder = !target.empty() && (target.back() == '/' || fs::is_directory(target));
    return folder ? target + "/" + fs::path(source).filename().string() : target;
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
    Place place = place_of(camera, inside);
    if (!place.in_flash) {
        copy(source, with_name(place.path, source));
        return 0;
    }
    Fd held = camera.lock();
    SettingsFolder etc(camera);
    copy(source, with_name(etc.path() + place.path, source));
    etc.write_back();
    return 0;
}

int get_main(const Arguments& arguments)
{
    auto words = parse_options(arguments, {});
    if (words.plain.size() < 2 || words.plain.size() > 3)
        fail("get: write it as: vcam get DIR /PATH/IN/CAMERA [FILE]");
    Camera camera(words.plain[0]);
    Place place = place_of(camera, words.plain[1]);
    SettingsFolder etc(camera);
    const std::string source = place.in_flash ? etc.path() + place.path : place.path;
    if (!exists(source)) fail("get: the camera has no %s", words.plain[1].c_str());
    if (words.plain.size() == 2 && fs::is_regular_file(source)) {
        write_all(STDOUT_FILENO, read_file(source), "standard output");
        return 0;
    }
    copy(source, with_name(words.plain.size() == 3 ? words.plain[2] : ".", source));
    return 0;
}

} // namespace vcam
