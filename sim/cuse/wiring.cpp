// vcam on the emulated machine: the commands that change what a camera is wired to, while it runs there.
#include "sim/vcam/commands.hpp"

int main(int argc, char** argv)
{
    using namespace vcam;
    const cli::Tool tool = {"vcam",
                            "Wires a camera's board on the emulated machine. A camera is a folder.",
                            "1 failed, 2 wrong use.",
                            {{"pin", "wire GPIO lines, as \"4.0 wire 5.0\", or press a key", pin_main},
                             {"rtc", "show, set or break the real-time clock", rtc_main},
                             {"plug", "what a serial port meets: nothing, loopback, block", plug_main}}};
    return cli::run(tool, argc, argv);
}
