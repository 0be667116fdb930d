// Ways to bring the device down.
#include "service/cutil_reboot.h"
#include "service/cutil_proc.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

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

void run(const Step& step)
{
    fflush(stdout); // before the command's own text
    [[maybe_unused]] int failed_steps_must_not_keep_the_device_up = system(step.command);
    if (step.pause_us) usleep(step.pause_us);
}

[[noreturn]] void bring_down()
{
    CUTIL_KillProcAll(CUTIL_TERM_LIST_PATH, SIGTERM);
    sleep(1);
    for (const Step& step : kSteps) run(step);
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
