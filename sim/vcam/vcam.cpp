// vcam: the virtual camera's command.
#include "sim/sandbox/sandbox.hpp"
#include "sim/vcam/commands.hpp"

int main(int argc, char** argv)
{
    using namespace vcam;
    const cli::Tool tool = {
        "vcam",
        "Runs a camera's programs, unmodified, in a sandbox with simulated drivers. A camera is a folder.",
        "1 failed, 2 wrong use; run, shell and exec: that of the program, 0 when the camera rebooted, "
        "121 power cut, 122 watchdog reset, 124 time-out, 125 the sandbox does not start.",
        {{"new", "make a camera", new_main},
         {"run", "start the camera with a program", run_main, kSandboxFailure},
         {"shell", "live in the camera; joins it where it runs already", shell_main, kSandboxFailure},
         {"exec", "run a program in a camera that runs", exec_main, kSandboxFailure},
         {"status", "what the camera is and how it stands", status_main},
         {"put", "copy a host file into the camera (into /tmp)", put_main},
         {"get", "copy a file to standard output or FILE, a folder to this folder or FILE", get_main},
         {"journal", "what was asked of the outside world, in order", journal_main},
         {"log", "the system log", log_main},
         {"diff", "what the last run changed", diff_main},
         {"fault", "plan faults, as \"mtd1 write 3 1 EIO\"; without a line, show the plan", fault_main},
         {"pin", "wire GPIO lines, as \"4.0 wire 5.0\", or press a key; without a line, show the wiring",
          pin_main},
         {"rtc", "show, set or break the real-time clock", rtc_main},
         {"plug", "what a serial port meets: nothing, loopback, block; without one, show", plug_main},
         {"web", "a live page of cameras in the browser", web_main},
         {"report", "the same page of one camera, frozen in one file", report_main},
         {"watch", "a live view of one camera in the terminal", watch_main},
         {"explore", "every cut of the power in a run of a program, and the same command again",
          explore_main},
         {"trace", "the last run for trace viewers, as JSON trace events", trace_main}},
    };
    return cli::run(tool, argc, argv);
}
