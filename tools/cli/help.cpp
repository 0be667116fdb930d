// The text of --help.
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <sstream>
#include <unistd.h>

namespace cli {
namespace {

constexpr size_t kWidth = 80, kColumn = 28;

// The words of a text behind a head, in lines of the width, indented from the second line on.
std::string filled(const std::string& head, const std::string& text, size_t indent)
{
    std::string out, line = head;
    if (line.size() + 1 > indent && !line.empty() && indent) {
        out = line + "\n";
        line.clear();
    }
    line.resize(std::max(line.size(), indent), ' ');
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool first = line.size() <= indent;
        if (!first && line.size() + 1 + word.size() > kWidth - 1) {
            out += line + "\n";
            line = std::string(indent, ' ');
        }
        if (line.size() > indent) line += ' ';
        line += word;
    }
    return out + line + "\n";
}

std::string usage_words(const Tool& tool, const Command& command, const Syntax& syntax)
{
    std::string words = "usage: " + std::string(tool.name) + " " + command.name;
    for (const Operand& operand : syntax.operands)
        words += operand.needed ? std::string(" ") + operand.name : std::string(" [") + operand.name + "]";
    if (!syntax.options.empty()) words += " [OPTION]...";
    if (syntax.rest)
        words +=
            syntax.rest_needed ? std::string(" -- ") + syntax.rest : std::string(" [") + syntax.rest + "]";
    return words;
}

std::string option_line(const Option& option)
{
    std::string head = "  ";
    const std::string names = option.names;
    const size_t comma = names.find(',');
    head += comma == std::string::npos ? (names.rfind("--", 0) == 0 ? "    " + names : names)
                                       : names.substr(0, comma) + ", " + names.substr(comma + 1);
    if (option.argument) head += std::string(" ") + option.argument;
    return filled(head, option.help, kColumn);
}

const std::vector<Option>& common_options()
{
    static const std::vector<Option> options = {
        {"--color", "WHEN", "auto, always or never; auto colours on a terminal unless NO_COLOR is set", {}},
        {"-h,--help", nullptr, "this text", {}},
    };
    return options;
}

} // namespace

std::string help_of(const Tool& tool, const Command& command, const Syntax& syntax)
{
    std::string out = filled("", usage_words(tool, command, syntax), 0) + "\n";
    out += filled("", command.help, 0) + "\n" + paint(STDOUT_FILENO, Style::strong, "options") + "\n";
    for (const Option& option : syntax.options) out += option_line(option);
    for (const Option& option : common_options()) out += option_line(option);
    return out;
}

std::string help_of(const Tool& tool)
{
    std::string out = filled("", "usage: " + std::string(tool.name) + " COMMAND [ARGUMENT]...", 0) + "\n";
    out += filled("", tool.help, 0) + "\n" + paint(STDOUT_FILENO, Style::strong, "commands") + "\n";
    for (const Command& command : tool.commands)
        out += filled(std::string("  ") + command.name, command.help, 12);
    out += "\n" + paint(STDOUT_FILENO, Style::strong, "options") + "\n";
    for (const Option& option : common_options()) out += option_line(option);
    out += option_line({"--version", nullptr, "the version of this program", {}});
    out += option_line({"--completion", "SHELL", "the completion script for bash, zsh or fish", {}});
    out += "\n" + filled("", std::string(tool.name) + " COMMAND --help shows a command's options.", 0);
    return out + filled("", std::string("Exit status: ") + tool.exit_status, 0);
}

} // namespace cli
