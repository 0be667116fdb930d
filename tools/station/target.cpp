// The kinds of target.
#include "tools/station/target.hpp"

#include "tools/cli/command_line.hpp"

namespace station {
namespace {

struct Scheme {
    const char* name;
    const char* address; // in a message
    std::unique_ptr<Target> (*make)(const std::string& address, const Access& access);
};
constexpr Scheme kSchemes[] = {
    {"vcam", "FOLDER", vcam_target},
};

} // namespace

std::unique_ptr<Target> make_target(const std::string& name, const Access& access)
{
    const size_t colon = name.find(':');
    std::string list;
    for (const Scheme& scheme : kSchemes) {
        if (colon != std::string::npos && colon + 1 < name.size() && name.substr(0, colon) == scheme.name)
            return scheme.make(name.substr(colon + 1), access);
        list += (list.empty() ? "" : ", ") + std::string(scheme.name) + ":" + scheme.address;
    }
    throw cli::WrongUse("TARGET '" + name + "': give " + list);
}

} // namespace station
