// Process lists: the names are the first short lines of the file, none is a piece of a long one.
#include "fuzz/fuzz.hpp"
#include "service/kill_list.hpp"

#include <memory>
#include <vector>

namespace {

std::vector<std::string> expected(const std::string& content)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < content.size() && names.size() < CUTIL_KILL_LIST_NAMES;) {
        size_t feed = content.find('\n', at);
        std::string line = content.substr(at, feed == std::string::npos ? feed : feed - at + 1);
        at += line.size();
        if (line.size() > 255 || (line.size() == 255 && line.back() != '\n')) continue;
        line = line.c_str(); // an embedded terminator ends the name
        if (line.size() < 32) names.push_back(line.substr(0, line.find_first_of("\r\n")));
    }
    return names;
}

} // namespace

void try_bytes(const std::string& bytes)
{
    auto list = std::make_unique<zep::KillList>();
    zep::read_kill_list(MemoryFile(bytes).fd(), *list);
    std::vector<std::string> names = expected(bytes);
    must(list->count == names.size());
    for (size_t i = 0; i < names.size(); ++i) must(names[i] == list->names[i]);
}
