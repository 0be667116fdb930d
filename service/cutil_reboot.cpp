// Ways to bring the device down.
#include "service/cutil_reboot.h"
#include "service/cutil_proc.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/reboot.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr unsigned kRebootLimitS = 60;

struct Step {
    const char* command;
    useconds_t pause_us;
};

constexpr Step kSteps[] = {
    {"umount /mnt/sd/", 100},    {"umount /mnt/usb/", 100},
    {"ifconfig rausb0 down", 0}, {"rmmod rt73", 100}, // the wireless driver
    {"/sbin/reboot", 0},
};

constexpr const char* kNetServices[] = {
    "/bin/dhcpd", "/bin/islmanager", "/bin/snmpd", "/bin/QRNNetManager", "/bin/sh",
};

// The command's status; only the last step's is used: a failed one before must not keep the device up.
int run(const Step& step)
{
    fflush(stdout); // before the command's own text
    int status = system(step.command);
    if (step.pause_us) usleep(step.pause_us);
    return status;
}

// Nobody else brings the device down when the reboot command did not start or failed.
void reboot_by_call()
{
    sleep(kRebootLimitS);
    constexpr char kFailed[] = "reboot: /sbin/reboot has failed, rebooting without it";
    syslog(LOG_ALERT, "%s", kFailed);
    fprintf(stderr, "%s\n", kFailed);
    sync();
    reboot(RB_AUTOBOOT);
}

[[noreturn]] void bring_down()
{
    signal(SIGCHLD, SIG_DFL); // a caller that ignores it would hide the status of the reboot command
    CUTIL_KillProcAll(CUTIL_TERM_LIST_PATH, SIGTERM);
    sleep(1);
    int status = 0;
    for (const Step& step : kSteps) status = run(step);
    if (status != 0) reboot_by_call();
    for (;;) pause();
}

} // namespace

void CUTIL_Reboot()
{
    fflush(stdout); // any of the signals and the reboot itself may end this process
    CUTIL_KillProcAll(CUTIL_KILL_LIST_PATH, SIGKILL);
    bring_down();
}

void CUTIL_RebootNet()
{
    fflush(stdout);
    for (const char* name : kNetServices) CUTIL_KillProc(name, SIGKILL);
    bring_down();
}
