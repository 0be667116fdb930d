// insmod, rmmod, lsmod: a list of names in the state folder, with the real tools' refusals.
#include "sim/guest/guest.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/text.hpp"
#include "sim/models/page.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

namespace vcam {
namespace {

using Names = std::vector<std::string>;

std::string list_path() { return std::string(kStateInside) + "/modules"; }

Names loaded()
{
    Names out;
    for (auto& line : split(try_read_file(list_path()).value_or(""), '\n'))
        if (!line.empty()) out.push_back(line);
    return out;
}

int refuse(const std::string& what, const char* why)
{
    fprintf(stderr, "%s: %s\n", what.c_str(), why);
    return 1;
}

} // namespace

int insmod_main(int argc, char** argv)
{
    if (argc < 2) return refuse("insmod", "give a module file");
    note_event("insmod", join(Names(argv + 1, argv + argc), " "));
    const std::string refusal = text("insmod: can't insert '%s'", argv[1]);
    if (access(argv[1], R_OK) < 0) return refuse(refusal, "No such file or directory");
    std::string name = std::filesystem::path(argv[1]).stem().string();
    Names names = loaded();
    if (std::find(names.begin(), names.end(), name) != names.end()) return refuse(refusal, "File exists");
    append_file(list_path(), name + "\n");
    if (name == "acodec") {
        state::set_dir(kStateInside);
        media::reset_acodec();
    }
    return 0;
}

int rmmod_main(int argc, char** argv)
{
    if (argc < 2) return refuse("rmmod", "give a module name");
    note_event("rmmod", join(Names(argv + 1, argv + argc), " "));
    Names names = loaded();
    auto it = std::find(names.begin(), names.end(), std::filesystem::path(argv[1]).stem().string());
    if (it == names.end())
        return refuse(text("rmmod: can't unload module '%s'", argv[1]), "No such file or directory");
    names.erase(it);
    write_file(list_path(), names.empty() ? "" : join(names, "\n") + "\n");
    return 0;
}

int lsmod_main(int, char**)
{
    puts("Module                  Size  Used by");
    for (const auto& name : loaded()) printf("%-19s %8d  0\n", name.c_str(), 16384);
    return 0;
}

} // namespace vcam
