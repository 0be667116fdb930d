// upgrade: writes a received package to flash and reboots the device.
#include "upgrade/applets.h"

#include "common/build_stamp.h"
#include "common/base/fd.hpp"
#include "common/qrn_udp.h"
#include "common/base/shell.hpp"
#include "service/cutil_proc.h"
#include "service/cutil_reboot.h"
#include "upgrade/cflash.h"
#include "upgrade/log.hpp"
#include "upgrade/upgrade_process.hpp"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char kDefaultPackage[] = "/tmp/flash3";
constexpr int kSystemManagerPort = 4100;

struct Stop {
    const char* program;
    int signal;
};

constexpr Stop kServices[] = {
    // stopped for a package that is named
    {"/bin/confd", SIGTERM},
    {"/bin/webs", SIGTERM},
    {"/bin/lighttpd", SIGTERM},
    {"/bin/AVServer", SIGTERM},
    {"/bin/ucftpd", SIGTERM},
    {"/bin/encpd", SIGTERM},
    {"/bin/onvif_discovery", SIGTERM},
    {"/bin/onvif_server", SIGTERM},
    {"/bin/genetec_discovery", SIGTERM},
    {"/bin/RTSPServer", SIGTERM},
    {"/bin/confd", SIGKILL},
    {"/bin/AVServer", SIGKILL},
    {"/bin/genetec_discovery", SIGKILL},
};

constexpr const char* kHolders[] = {"/bin/webs", "/bin/lighttpd", "/bin/confd"};

void notify_system_manager()
{
    constexpr char kNotice[] = {'S', 'Y', 'S', 'P', 0, 0, 0, 0, 'U', 'P', 'G', 'R'};
    zep::Fd fd(QRN_OpenLocalUDPCSocket());
    if (fd) QRN_SendLocalUDPData(fd.get(), kSystemManagerPort, kNotice, sizeof kNotice);
}

// xkill waits up to ten seconds for the end of a program, which a bare signal does not.
void stop_services()
{
    bool xkill = access("/bin/xkill", R_OK) == 0;
    for (const Stop& stop : kServices) {
        if (!xkill) {
            CUTIL_KillProc(stop.program, stop.signal);
            continue;
        }
        char line[64];
        snprintf(line, sizeof line, "/bin/xkill %s%s", stop.signal == SIGKILL ? "SIGKILL " : "",
                 stop.program);
        zep::run_shell(line);
    }
}

int option_flags(int argc, char** argv)
{
    int flags = 0;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "-v") == 0) flags |= CFLASH_VERBOSE;
        if (strcmp(argv[i], "-f") == 0) flags |= CFLASH_FACTORY;
    }
    return flags;
}

} // namespace

int upgrade_main(int argc, char** argv)
{
    const char* package = zep::prepare_process(argc < 3 ? kDefaultPackage : argv[1]);
    syslog(LOG_INFO, "%s(%s) start", "Upgrade Daemon v1.0.0.1", ZEP_BUILD_STAMP);

    // A package that is named without an option is ignored; start scripts call both forms.
    int flags = 0;
    if (argc < 3) {
        sleep(2);
        for (const char* program : kHolders) CUTIL_KillProc(program, SIGKILL);
    } else {
        flags = option_flags(argc, argv);
        notify_system_manager();
        stop_services();
    }

    bool good = CFlash_QRNWrite(package, "/dev/mtd1", "/dev/mtd2", "/dev/mtd3", flags) == 0;
    const char* result = good ? "Upgrade complete." : "Upgrade fail.";
    zep::log_alert("%s", result);
    if (flags & CFLASH_VERBOSE) {
        puts(result);
        fflush(stdout);
    }
    if (flags) sleep(2);
    CUTIL_Reboot();
}
