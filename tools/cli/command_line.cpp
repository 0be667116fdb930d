// Parses one command's arguments.
#include "tools/cli/command_line.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace cli {
namespace {

std::vector<std::string> names_of(const Option& option)
{
    std::vector<std::string> names;
    std::string name;
    for (const char* c = option.names;; ++c) {
        if (*c && *c != ',') {
            name += *c;
            continue;
        }
        names.push_back(name);
        name.clear();
        if (!*c) return names;
    }
}

const Option* find(const Syntax& syntax, const std::string& word)
{
    for (const Option& option : syntax.options)
        for (const std::string& name : names_of(option))
            if (word == name) return &option;
    return nullptr;
}

bool is_option(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// Where the options and operands end: at "--", or at the word that begins the rest.
size_t end_of_options(const Arguments& arguments, const Syntax& syntax)
{
    size_t plain = 0;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--") return i;
        if (!is_option(arguments[i])) {
            if (syntax.rest && plain == syntax.operands.size()) return i;
            ++plain;
            continue;
        }
        const size_t equal = arguments[i].find('=');
        const Option* option = find(syntax, arguments[i].substr(0, equal));
        if (option && !option->argument && equal != std::string::npos)
            throw WrongUse(arguments[i] + ": this option takes no value");
        if (option && option->argument && equal == std::string::npos) ++i;
    }
    return arguments.size();
}

void take_all(const Option& option, const CLI::results_t& values)
{
    const std::string name = names_of(option).back();
    for (const std::string& value : values) {
        try {
            option.take(value);
        } catch (const std::exception& e) {
            const std::string reason = e.what(); // some say the option's name already
            throw WrongUse(reason.rfind("--", 0) == 0 ? reason : name + " " + value + ": " + reason);
        }
    }
}

void add(CLI::App& app, const Option& option)
{
    if (!option.argument) {
        app.add_flag_callback(
            option.names, [&option] { option.take(""); }, option.help);
        return;
    }
    app.add_option(
           option.names,
           [&option](const CLI::results_t& values) {
               take_all(option, values);
               return true;
           },
           option.help)
        ->type_name(option.argument)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(1);
}

void check_operands(const Arguments& plain, const Syntax& syntax)
{
    for (size_t i = 0; i < syntax.operands.size(); ++i)
        if (syntax.operands[i].needed && i >= plain.size())
            throw WrongUse(std::string("missing ") + syntax.operands[i].name);
    for (size_t i = 0; i < std::min(plain.size(), syntax.operands.size()); ++i)
        if (plain[i].empty()) throw WrongUse(std::string(syntax.operands[i].name) + " is empty");
    if (plain.size() > syntax.operands.size())
        throw WrongUse("'" + plain[syntax.operands.size()] + "' is one word too many");
}

} // namespace

Words parse(const Arguments& arguments, const Syntax& syntax)
{
    const size_t end = std::min(end_of_options(arguments, syntax), arguments.size());
    Arguments front(arguments.begin(), arguments.begin() + long(end));
    std::reverse(front.begin(), front.end()); // as the library takes them

    CLI::App app;
    bool help = false;
    app.set_help_flag();
    app.allow_extras();
    app.add_flag("-h,--help", help);
    const Option color = {"--color", "WHEN", "", use_color};
    add(app, color);
    for (const Option& option : syntax.options) add(app, option);
    try {
        app.parse(front);
    } catch (const CLI::ParseError& e) {
        throw WrongUse(e.what());
    }
    if (help) throw HelpWanted{syntax};

    Words words;
    for (const std::string& word : app.remaining()) {
        if (is_option(word)) throw WrongUse("unknown option " + word);
        words.plain.push_back(word);
    }
    const bool marked = end < arguments.size() && arguments[end] == "--";
    Arguments& last = syntax.rest ? words.rest : words.plain;
    last.insert(last.end(), arguments.begin() + long(end) + marked, arguments.end());
    check_operands(words.plain, syntax);
    if (syntax.rest_needed && words.rest.empty()) throw WrongUse(std::string("missing ") + syntax.rest);
    return words;
}

Syntax syntax_of(const Command& command)
{
    try {
        command.main({"--help"});
    } catch (const HelpWanted& help) {
        return help.syntax;
    }
    return {};
}

} // namespace cli
