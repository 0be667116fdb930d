// vcam: the virtual camera's command.
#include "sim/box/commands.hpp"
#include "sim/box/text.hpp"

#include <cstdio>
#include <cstring>

namespace vcam {

const Command kCommands[] = {
    {"new", "DIR [options]", "make a camera", new_main},
    {"run", "DIR [options] -- COMMAND [ARGUMENTS]", "start the camera with a command", run_main},
    {"shell", "DIR [options]", "live in the camera; joins it where it runs already", shell_main},
    {"exec", "DIR [options] -- COMMAND [ARGUMENTS]", "a command in a camera that runs", exec_main},
    {"status", "DIR [--json]", "what the camera is and how it stands", status_main},
    {"put", "DIR FILE [/PATH]", "copy a host file into the camera (into /tmp)", put_main},
    {"get", "DIR /PATH [FILE]", "copy a file out of the camera", get_main},
    {"journal", "DIR [--last] [--source NAME]", "what was asked of the outside world, in order", journal_main},
    {"log", "DIR [--last]", "the system log", log_main},
    {"diff", "DIR", "what the last run changed", diff_main},
    {"fault", "DIR [--clear] [LINE ...]", "plan faults, as \"mtd1 write 3 1 EIO\"; without a line, show the plan",
     fault_main},
    {"help", "[COMMAND]", "this list, or a command's options", help_main},
    {nullptr, nullptr, nullptr, nullptr},
};

int help_main(const Arguments&)
{
    puts("usage: vcam COMMAND DIR ...\n");
    for (const auto* c = kCommands; c->name; ++c) printf("  %-8s %-40s %s\n", c->name, c->usage, c->help);
    return 0;
}

} // namespace vcam

int main(int argc, char** argv)
{
    using namespace vcam;
    if (argc < 2) {
        help_main({});
        return kUsageStatus;
    }
    Arguments arguments(argv + 2, argv + argc);
    for (const auto* c = kCommands; c->name; ++c) {
        if (strcmp(argv[1], c->name) != 0) continue;
        try {
            return c->main(arguments);
        } catch (const std::exception& e) {
            fprintf(stderr, "vcam: %s\n", e.what());
            return 1;
        }
    }
    fprintf(stderr, "vcam: there is no command '%s'; see: vcam help\n", argv[1]);
    return kUsageStatus;
}
