// vcam: the virtual camera's command.
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"

#include <cstdio>
#include <exception>
#include <string>

namespace vcam {

const Command kCommands[] = {
    {"new", "DIR [options]", "make a camera", new_main},
    {"run", "DIR [options] -- COMMAND [ARGUMENTS]", "start the camera with a command", run_main},
    {"shell", "DIR [options]", "live in the camera; joins it where it runs already", shell_main},
    {"exec", "DIR [options] -- COMMAND [ARGUMENTS]", "a command in a camera that runs", exec_main},
    {"status", "DIR [--json]", "what the camera is and how it stands", status_main},
    {"put", "DIR FILE [/PATH]", "copy a host file into the camera (into /tmp)", put_main},
    {"get", "DIR /PATH [FILE]", "copy a file out of the camera", get_main},
    {"journal", "DIR [--last] [--source NAME]", "what was asked of the outside world, in order",
     journal_main},
    {"log", "DIR [--last]", "the system log", log_main},
    {"diff", "DIR", "what the last run changed", diff_main},
    {"fault", "DIR [--clear] [LINE ...]",
     "plan faults, as \"mtd1 write 3 1 EIO\"; without a line, show the plan", fault_main},
    {"pin", "DIR [--clear] [LINE ...]",
     "wire GPIO lines, as \"4.0 wire 5.0\", or press a key; without a line, show the wiring", pin_main},
    {"rtc", "DIR [--set TIME] [--fault NAME]", "the real-time clock", rtc_main},
    {"plug", "DIR [PORT FAR-END ...]",
     "what a serial port meets: nothing, loopback, block; without one, show", plug_main},
    {"help", "[COMMAND]", "this list, or a command's options", help_main},
    {nullptr, nullptr, nullptr, nullptr},
};

namespace {

const Command* find_command(const std::string& name)
{
    for (const auto* c = kCommands; c->name; ++c)
        if (name == c->name) return c;
    fprintf(stderr, "vcam: there is no command '%s'; see: vcam help\n", name.c_str());
    return nullptr;
}

void list_commands(FILE* to)
{
    fputs("usage: vcam COMMAND DIR ...\n\n", to);
    for (const auto* c = kCommands; c->name; ++c)
        fprintf(to, "  %-8s %-40s %s\n", c->name, c->usage, c->help);
    fputs("\nvcam COMMAND --help shows a command's options.\n", to);
}

int run_command(const Command& command, const Arguments& arguments)
{
    try {
        return command.main(arguments);
    } catch (const HelpWanted& help) {
        printf("usage: vcam %s %s\n%s\n%s", command.name, command.usage, command.help, help.options.c_str());
        return 0;
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: %s\n", e.what());
        return 1;
    }
}

} // namespace

int help_main(const Arguments& arguments)
{
    if (arguments.empty()) {
        list_commands(stdout);
        return 0;
    }
    const Command* command = find_command(arguments[0]);
    return command && command->main != help_main ? run_command(*command, {"--help"}) : kUsageStatus;
}

} // namespace vcam

int main(int argc, char** argv)
{
    using namespace vcam;
    if (argc < 2) {
        list_commands(stderr);
        return kUsageStatus;
    }
    const Command* command = find_command(argv[1]);
    return command ? run_command(*command, Arguments(argv + 2, argv + argc)) : kUsageStatus;
}
