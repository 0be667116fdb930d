// The line files that came with the program, and which of them is for a model.
#include "tools/station/line.hpp"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>
#include <stdexcept>

namespace station {
namespace {

namespace fs = std::filesystem;

// In the build tree as where it is installed.
fs::path folder()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path().parent_path() / "share/zep/lines";
}

std::string path_of(const std::string& name) { return (folder() / (name + ".toml")).string(); }

std::string listed(const Words& names)
{
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

} // namespace

Words line_names()
{
    Words names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder(), error))
        if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool fits(const Words& patterns, const std::string& word)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& p) { return fnmatch(p.c_str(), word.c_str(), 0) == 0; });
}

ProductionLine find_line(const std::string& name, const std::string& model)
{
    const Words names = line_names();
    if (std::find(names.begin(), names.end(), name) != names.end()) return read_line(path_of(name));
    if (!name.empty() && fs::exists(name)) return read_line(name);
    if (!name.empty())
        throw std::runtime_error(name +
                                 ": neither a file nor a line that came with this program: " + listed(names));
    for (const std::string& each : names) {
        ProductionLine line = read_line(path_of(each));
        if (fits(line.models, model)) return line;
    }
    throw std::runtime_error("no line is for model \"" + model + "\"; name one with --line: a file, or " +
                             listed(names));
}

} // namespace station
