// The kinds of target.
#include "tools/station/target/target.hpp"

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
    {"ssh", "[USER@]HOST[:PORT]", ssh_target},
    {"serial", "DEVICE[,BAUD]", serial_target},
    {"telnet", "HOST[:PORT]", telnet_target},
};

} // namespace

std::string quoted(const Words& words)
{
    std::string line;
    for (const std::string& word : words) {
        line += line.empty() ? "'" : " '";
        for (char c : word) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += '\'';
    }
    return line;
}

Words filled(Words words, const std::string& host, int port)
{
    for (std::string& word : words) {
        if (word == "{host}") word = host;
        if (word == "{port}") word = std::to_string(port);
    }
    return words;
}

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
