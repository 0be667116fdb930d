// test_dio: digital outputs and inputs, with a loop-back plug or read out.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/saved_lines.hpp"
#include "factory/verdict.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"

#include <cstdio>

namespace {

using zep::BoardGuard;
using zep::GpioLine;
using zep::Steps;
using zep::Wiring;

constexpr char kUsage[] = "usage: test_dio [-v] [-r] [-n rounds]\n"
                          "    outputs wired to inputs pair by pair; -r only reads the inputs\n";
constexpr int64_t kSettleMs = 20;

// False when the driver refuses.
bool read_line(int fd, const GpioLine& line, bool& high)
{
    int32_t value = get_gpio(fd, line.group, line.bit);
    high = value > 0;
    return value >= 0;
}

bool read_out(int fd, const Wiring& wiring)
{
    bool passed = wiring.inputs.count > 0;
    for (const GpioLine& line : wiring.inputs.all()) {
        bool high = false;
        bool ok = read_line(fd, line, high);
        passed &= ok;
        if (ok)
            printf("%d.%d=%d\n", line.group, line.bit, high);
        else
            printf("%d.%d=?\n", line.group, line.bit);
    }
    return passed;
}

// Drives the outputs with a pattern, one bit an output, and expects it on the inputs.
bool pattern_arrives(int fd, const Wiring& wiring, uint32_t pattern, const Steps& steps)
{
    for (size_t i = 0; i < wiring.outputs.count; ++i) {
        const GpioLine& line = wiring.outputs.lines[i];
        set_gpio(fd, line.group, line.bit, int32_t(pattern >> i & 1));
    }
    if (!BoardGuard::pause_ms(kSettleMs)) return false;
    uint32_t seen = 0;
    bool passed = true;
    for (size_t i = 0; i < wiring.inputs.count; ++i) {
        bool high = false;
        passed &= read_line(fd, wiring.inputs.lines[i], high);
        seen |= uint32_t(high) << i;
    }
    passed &= seen == pattern;
    steps.say("OUT 0x%04X => IN 0x%04X : %s\n", pattern, seen, passed ? "successful" : "failed");
    return passed;
}

// All low, all high, then a one and a zero walking, so that stuck, swapped and bridged lines all show.
bool round_passes(int fd, const Wiring& wiring, const Steps& steps)
{
    const uint32_t all = (1u << wiring.outputs.count) - 1;
    if (!pattern_arrives(fd, wiring, 0, steps) || !pattern_arrives(fd, wiring, all, steps)) return false;
    for (size_t i = 0; i < wiring.outputs.count; ++i)
        if (!pattern_arrives(fd, wiring, 1u << i, steps) ||
            !pattern_arrives(fd, wiring, all & ~(1u << i), steps))
            return false;
    return true;
}

bool loop_back(int fd, const Wiring& wiring, int64_t rounds, const Steps& steps)
{
    bool passed = true;
    for (int64_t i = 0; i < rounds && passed; ++i) passed = round_passes(fd, wiring, steps);
    return passed;
}

bool pairs_known(const Wiring& wiring)
{
    if (wiring.outputs.count > 0 && wiring.outputs.count == wiring.inputs.count) return true;
    fprintf(stderr, "test_dio: %zu outputs and %zu inputs are known; name pairs in /etc/factory_io.conf\n",
            wiring.outputs.count, wiring.inputs.count);
    return false;
}

} // namespace

int test_dio_main(int argc, char** argv)
{
    Steps steps;
    bool read_only = false;
    int64_t rounds = 3;
    const zep::Option options[] = {
        {"-v", &steps.verbose}, {"-r", &read_only}, {"-n", nullptr, &rounds, 1, 1000}};
    Wiring wiring;
    if (!zep::parse_options(argc, argv, options, nullptr, 0, kUsage) || !zep::load_wiring(wiring))
        return zep::print_verdict(false);
    if (!read_only && !pairs_known(wiring)) return zep::print_verdict(false);
    BoardGuard guard;
    int fd = open_gpio();
    if (fd < 0 || !claim_lines(fd, wiring.outputs.all(), argv[0]) ||
        !claim_lines(fd, wiring.inputs.all(), argv[0]))
        guard.give_up();
    zep::SavedLines lines(fd, argv[0]);
    bool passed = lines.save(wiring.outputs.all()) && lines.save(wiring.inputs.all()) &&
                  (read_only ? read_out(fd, wiring) : loop_back(fd, wiring, rounds, steps));
    passed &= lines.restore();
    close_gpio(fd);
    return guard.verdict(passed);
}
