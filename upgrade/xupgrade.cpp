// xupgrade: writes the package in /tmp to flash while a worker feeds the watchdog.
#include "upgrade/applets.h"

#include "common/base/parse_int.hpp"
#include "service/cthread.h"
#include "service/cudpdebug.h"
#include "service/cutil_proc.h"
#include "service/cutil_reboot.h"
#include "service/cwatchdog.h"
#include "upgrade/cflash.h"
#include "upgrade/log.hpp"
#include "upgrade/upgrade_process.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constexpr char kPackage[] = "/tmp/flash3";

struct Options {
    int flags = 0;
    bool reboot = false;
    bool help = false;
    int log_port = 0;
};

struct Stop {
    const char* program;
    int signal;
};

constexpr Stop kServices[] = {
    {"/bin/encpd", SIGKILL},         {"/bin/genetec_discovery", SIGKILL},
    {"/bin/QRNNetManager", SIGKILL}, {"/bin/sh", SIGKILL},
    {"/bin/AVServer", SIGTERM},      {"/bin/AVClient", SIGTERM},
    {"/bin/RecordDaemon", SIGTERM},  {"/bin/RTSPServer", SIGTERM},
    {"/bin/RTSPClient", SIGTERM},    {"/bin/onvif_discovery", SIGTERM},
    {"/bin/onvif_server", SIGTERM},  {"/bin/web", SIGTERM}, // a prefix: ends /bin/webs too
    {"/bin/webs", SIGKILL},          {"/bin/lighttpd", SIGKILL},
    {"/bin/confd", SIGKILL},
};

// The line of -i says the opposite of what it does; scripts and manuals quote it.
constexpr char kHelp[] = "'%s' usage : \n"
                         "        -f                      When the update is complete, factorydefault.\n"
                         "        -b                      When the update is complete, system reboot.\n"
                         "        -i                      Ignore the 'OEM code' and proceed the update. \n"
                         "        -r <udp_port>           send udp log message.\n"
                         "        -h                      program help page.\n";

// The argument after -r is looked at as an option as well.
Options parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-f") == 0) options.flags |= CFLASH_FACTORY;
        if (strcmp(argv[i], "-b") == 0) options.reboot = true;
        if (strcmp(argv[i], "-i") == 0) options.flags |= CFLASH_CHECK_MARKER;
        if (strcmp(argv[i], "-r") == 0 && i + 1 < argc) options.log_port = zep::parse_int(argv[i + 1]);
        if (strcmp(argv[i], "-h") == 0) {
            options.help = true;
            break;
        }
    }
    return options;
}

// Feeds the watchdog while the flash is written. The worker may outlive a stop that timed out,
// so it lives as long as the process.
struct Keeper {
    CTHREAD thread;
    CWATCHDOG watchdog;
    bool started;
};

constinit Keeper keeper = {};

int32_t open_watchdog(void*)
{
    CWATCHDOG_Open(&keeper.watchdog);
    return 0; // a device without one is upgraded all the same
}

int32_t feed_watchdog(void*)
{
    keeper.watchdog.KeepAlive(&keeper.watchdog);
    sleep(1);
    return 0;
}

// Feeds once more and leaves the watchdog armed: without a further feeder it resets the device.
int32_t leave_watchdog(void*)
{
    keeper.watchdog.KeepAlive(&keeper.watchdog);
    return 0;
}

void start_keeper()
{
    CTHREAD_Init(&keeper.thread, nullptr, open_watchdog, feed_watchdog, leave_watchdog);
    keeper.started = CTHREAD_Start(&keeper.thread) == 0;
}

// The log lines that also go out as datagrams; null without -r.
constinit CUDPDEBUG* udp_log = nullptr;

void log_to_both(const char* line)
{
    zep::log_to_syslog(line);
    udp_log->Printf(udp_log, "%s", line);
}

void start_udp_log(int port)
{
    if (port < 1 || port > 65535) return;
    udp_log = static_cast<CUDPDEBUG*>(calloc(1, sizeof *udp_log));
    if (!udp_log || CUDPDEBUG_Init(udp_log, 1, "127.0.0.1", uint16_t(port), nullptr) < 0) return;
    zep::log_redirect(log_to_both);
}

void stop_udp_log()
{
    if (!udp_log) return;
    zep::log_redirect(zep::log_to_syslog);
    udp_log->Close(udp_log);
    free(udp_log);
    udp_log = nullptr;
}

void upgrade(const Options& options)
{
    zep::prepare_process(kPackage);
    CUTIL_KillProc("/bin/QRNSysMgr", SIGTERM);
    sleep(1);
    start_keeper();
    for (const Stop& stop : kServices) CUTIL_KillProc(stop.program, stop.signal);
    sleep(3);

    start_udp_log(options.log_port);
    bool good = CFlash_QRNWrite(kPackage, "/dev/mtd1", "/dev/mtd2", "/dev/mtd3", options.flags) == 0;
    stop_udp_log();
    puts(good ? "Upgrade complete." : "Upgrade fail.");
    fflush(stdout);
}

} // namespace

int xupgrade_main(int argc, char** argv)
{
    Options options = parse(argc, argv);
    if (options.help)
        printf(kHelp, argv[0]);
    else
        upgrade(options);
    if (keeper.started) CTHREAD_Stop(&keeper.thread);
    if (options.reboot) CUTIL_Reboot();
    return 0;
}
