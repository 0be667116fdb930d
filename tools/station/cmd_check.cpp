// zep-station check: what a line file says.
#include "tools/station/commands.hpp"
#include "tools/station/line.hpp"
#include "tools/station/text.hpp"

#include <cstdio>

namespace station {
namespace {

std::string joined(const Words& words)
{
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

void print(const ProductionLine& line)
{
    printf("%s: %s, for %s\n", line.path.c_str(), line.name.c_str(),
           line.models.empty() ? "no model unless it is named" : joined(line.models).c_str());
    size_t number = 0;
    for (const Test& test : line.tests) {
        printf("%3zu %s %s", ++number, clipped(test.name, 24, 24).c_str(), joined(test.run).c_str());
        if (!test.models.empty()) printf("  (%s)", joined(test.models).c_str());
        puts("");
    }
}

} // namespace

int check(const cli::Arguments& arguments)
{
    const cli::Words words = cli::parse(arguments, {{}, {{"LINE", cli::Operand::file, false}}});
    const Words names = words.plain.empty() ? line_names() : words.plain;
    for (const std::string& name : names) print(find_line(name, ""));
    return kPassed;
}

} // namespace station
