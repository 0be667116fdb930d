// A tool's main: the words before the command, the command, its errors.
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <cstdio>

namespace cli {
namespace {

const Command* find_command(const Tool& tool, const std::string& name)
{
    for (const Command& command : tool.commands)
        if (name == command.name) return &command;
    return nullptr;
}

int complain(const Tool& tool, const std::string& reason, const std::string& command)
{
    fprintf(stderr, "%s: %s%s%s; see: %s %s%s--help\n", tool.name, command.c_str(),
            command.empty() ? "" : ": ", reason.c_str(), tool.name, command.c_str(),
            command.empty() ? "" : " ");
    return kWrongUse;
}

// A success is one only when its text has arrived: standard output may be a full disk.
int flushed(const Tool& tool, int status, int failure)
{
    if (fflush(stdout) != 0)
        fprintf(stderr, "%s: standard output: cannot be written: %m\n", tool.name);
    else if (ferror(stdout)) // an earlier write: its errno is gone
        fprintf(stderr, "%s: standard output: cannot be written: it is closed or full\n", tool.name);
    else
        return status;
    return status == 0 ? failure : status;
}

// Text that was asked for instead of work.
int show(const Tool& tool, const std::string& text)
{
    fputs(text.c_str(), stdout);
    return flushed(tool, 0, tool.commands.front().failure);
}

int run_command(const Tool& tool, const Command& command, const Arguments& arguments)
{
    try {
        return flushed(tool, command.main(arguments), command.failure);
    } catch (const HelpWanted& help) {
        return show(tool, help_of(tool, command, help.syntax));
    } catch (const WrongUse& e) {
        return complain(tool, e.what(), command.name);
    } catch (const std::exception& e) {
        fprintf(stderr, "%s: %s\n", tool.name, e.what());
        return command.failure;
    }
}

// "help" and "help COMMAND" are --help in other words.
int help(const Tool& tool, const Arguments& words)
{
    if (words.empty()) return show(tool, help_of(tool));
    const Command* command = find_command(tool, words[0]);
    if (!command) return complain(tool, "there is no command '" + words[0] + "'", "");
    return run_command(tool, *command, {"--help"});
}

} // namespace

int run(const Tool& tool, int argc, char** argv)
{
    const Arguments all(argv + 1, argv + argc);
    size_t at = 0;
    for (; at < all.size() && all[at][0] == '-'; ++at)
        if (all[at] == "--color" || all[at] == "--completion") ++at;
    at = std::min(at, all.size());
    try {
        bool version = false;
        std::string shell;
        parse({all.begin(), all.begin() + long(at)},
              {{{"--version", nullptr, "", [&](auto&) { version = true; }},
                {"--completion", "SHELL", "",
                 [&](auto& v) {
                     shell = one_of(v, {"bash", "zsh", "fish"});
                 }}},
               {}});
        if (version) return show(tool, std::string(tool.name) + " " ZEP_VERSION "\n");
        if (!shell.empty()) return show(tool, completion(tool, shell));
    } catch (const HelpWanted&) {
        return help(tool, {});
    } catch (const WrongUse& e) {
        return complain(tool, e.what(), "");
    }
    if (at == all.size()) return complain(tool, "missing COMMAND", "");
    const Arguments words(all.begin() + long(at) + 1, all.end());
    if (all[at] == "help") return help(tool, words);
    const Command* command = find_command(tool, all[at]);
    if (!command) return complain(tool, "there is no command '" + all[at] + "'", "");
    return run_command(tool, *command, words);
}

} // namespace cli
