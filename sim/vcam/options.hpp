// Command-line options of one vcam command, as a table.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vcam {

struct Option {
    const char* name;     // "--model"
    const char* argument; // "CODE", or null for a switch
    const char* help;
    std::function<void(const std::string&)> take;
};

// What stands before "--" and is no option, then everything after "--".
struct Words {
    std::vector<std::string> plain;
    std::vector<std::string> command;
};

// "--help" was asked for; no error, so no Error.
struct HelpWanted {
    std::string options; // as describe() puts them
};

// Throws an Error for an unknown option or a missing argument. The first plain word after `stop_at`
// plain ones begins the command even without "--" (0: never).
Words parse_options(const std::vector<std::string>& arguments, const std::vector<Option>& options,
                    size_t stop_at = 0);
// "  --model CODE   help" lines.
std::string describe(const std::vector<Option>& options);

} // namespace vcam
