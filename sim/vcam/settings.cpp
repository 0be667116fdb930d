// The camera's /etc while the camera is off.
#include "sim/vcam/settings.hpp"
#include "sim/base/text.hpp"

namespace vcam {

SettingsFolder::SettingsFolder(const Camera& camera) : camera_(camera)
{
    const auto& p = camera.partition("mtd3");
    unpack_image(camera.image(p), p, folder_.path());
}

void SettingsFolder::write_back()
{
    const auto& p = camera_.partition("mtd3");
    sync_image(camera_.image(p), p, folder_.path());
}

std::map<std::string, std::string> read_settings(const std::string& folder)
{
    std::map<std::string, std::string> out;
    for (const auto& [name, entry] : list_tree(folder)) {
        if (entry.kind != 'f') continue;
        int number = 0;
        for (const auto& line : split(read_file(folder + "/" + name), '\n')) {
            ++number;
            size_t equal = line.find('=');
            if (line.empty()) continue;
            if (equal == std::string::npos)
                out[text("/etc/%s: line %d", name.c_str(), number)] = one_line(line);
            else
                out[text("/etc/%s: %s", name.c_str(), trim(line.substr(0, equal)).c_str())] =
                    one_line(trim(line.substr(equal + 1)));
        }
    }
    return out;
}

} // namespace vcam
