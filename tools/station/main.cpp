// zep-station: a factory line as one command.
#include "tools/station/commands.hpp"

#include <fcntl.h>

int main(int argc, char** argv)
{
    using namespace station;
    // Else a log or a board's pipe would become standard output.
    for (int fd : {0, 1, 2})
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) return kTrouble;
    const cli::Tool tool = {
        "zep-station",
        "Runs the tests of a factory line on a board and keeps what they found.",
        "0 all passed, 1 not all passed, 2 wrong use, a line file, a target or an output that will not do.",
        {{"run", "run a line on a board", run, kTrouble},
         {"check", "read line files and list their tests; without FILE those that came with the program",
          check, kTrouble}},
    };
    return cli::run(tool, argc, argv);
}
