// test_send_watchdog: asks the system manager to stop and restart its watchdog feeding.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/verdict.hpp"

#include "common/base/bytes.hpp"
#include "common/csysmgr.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kUsage[] =
    "usage: test_send_watchdog [-v] [-s stop] [-r restart] [-n times] [-i ms] [stop|restart]\n"
    "    sends both commands, or the named one, to the system manager; the verdict is of the\n"
    "    sending alone. Commands are numbers (default: the words \"WDSP\" and \"WDRS\").\n";

// Four characters as a command word: they stand in the packet in this order.
constexpr int64_t word(const char* text) { return zep::load_le32(text); }

bool send_command(const char* name, int64_t command, const zep::Steps& steps)
{
    errno = 0;
    bool ok = CSYSMGR_SendPacket(uint32_t(command), nullptr, 0) == 0 && errno == 0;
    steps.say("%s 0x%08X : %s\n", name, unsigned(command), ok ? "successful" : "failed");
    return ok;
}

} // namespace

int test_send_watchdog_main(int argc, char** argv)
{
    zep::Steps steps;
    int64_t stop = word("WDSP");
    int64_t restart = word("WDRS");
    int64_t times = 1;
    int64_t interval_ms = 1000;
    const zep::Option options[] = {
        {"-v", &steps.verbose},
        {"-s", nullptr, &stop, 0, UINT32_MAX},
        {"-r", nullptr, &restart, 0, UINT32_MAX},
        {"-n", nullptr, &times, 1, 1000},
        {"-i", nullptr, &interval_ms, 0, 60'000},
    };
    const char* words[1] = {""};
    if (!zep::parse_options(argc, argv, options, words, 1, kUsage)) return zep::print_verdict(false);
    bool only_stop = strcmp(words[0], "stop") == 0;
    bool only_restart = strcmp(words[0], "restart") == 0;
    if (*words[0] && !only_stop && !only_restart) {
        fprintf(stderr, "test_send_watchdog: no command '%s'\n%s", words[0], kUsage);
        return zep::print_verdict(false);
    }
    zep::BoardGuard guard; // a signal between the two would leave the feeding stopped
    bool passed = true;
    for (int64_t i = 0; i < times; ++i) {
        if (i > 0 && !zep::BoardGuard::pause_ms(interval_ms)) break;
        if (!only_restart) passed &= send_command("STOP", stop, steps);
        if (!only_stop) passed &= send_command("RESTART", restart, steps);
    }
    return guard.verdict(passed);
}
