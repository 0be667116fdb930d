// Command-line options of one vcam command, as a table.
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"

namespace vcam {
namespace {

const Option* find(const std::vector<Option>& options, const std::string& name)
{
    for (const auto& o : options)
        if (name == o.name) return &o;
    return nullptr;
}

} // namespace

Words parse_options(const std::vector<std::string>& arguments, const std::vector<Option>& options,
                    size_t stop_at)
{
    Words out;
    for (size_t i = 0; i < arguments.size(); ++i) {
        std::string word = arguments[i];
        const bool ends = word == "--" || (stop_at && out.plain.size() == stop_at && word[0] != '-');
        if (ends) {
            out.command.assign(arguments.begin() + long(i) + (word == "--"), arguments.end());
            return out;
        }
        if (word.size() < 2 || word[0] != '-') {
            out.plain.push_back(word);
            continue;
        }
        if (word == "--help") throw HelpWanted{describe(options)};
        size_t equal = word.find('=');
        const Option* o = find(options, word.substr(0, equal));
        if (!o) fail("unknown option %s", word.c_str());
        if (!o->argument && equal != std::string::npos) fail("option %s takes no argument", o->name);
        if (!o->argument)
            o->take("");
        else if (equal != std::string::npos)
            o->take(word.substr(equal + 1));
        else if (++i < arguments.size())
            o->take(arguments[i]);
        else
            fail("option %s needs %s", o->name, o->argument);
    }
    return out;
}

std::string describe(const std::vector<Option>& options)
{
    std::string out;
    for (const auto& o : options) {
        std::string head = o.argument ? text("%s %s", o.name, o.argument) : o.name;
        out += text("  %-26s %s\n", head.c_str(), o.help);
    }
    return out;
}

} // namespace vcam
