// test_dio: digital outputs and inputs, with a loop-back plug or read out.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

using zep::Line;
using zep::Steps;
using zep::Wiring;

constexpr char kUsage[] = "usage: test_dio [-v] [-r] [-n rounds]\n"
                          "    outputs wired to inputs pair by pair; -r only reads the inputs\n";
constexpr useconds_t kSettleUs = 20'000;

bool high(int fd, const Line& line) { return get_gpio(fd, line.group, line.bit) != 0; }

int read_out(int fd, const Wiring& wiring)
{
    for (const Line& line : wiring.inputs.all()) printf("%d.%d=%d\n", line.group, line.bit, high(fd, line));
    return zep::print_verdict(wiring.inputs.count > 0);
}

// Drives the outputs with a pattern, one bit an output, and expects it on the inputs.
bool pattern_arrives(int fd, const Wiring& wiring, uint32_t pattern, const Steps& steps)
{
    for (size_t i = 0; i < wiring.outputs.count; ++i) {
        const Line& line = wiring.outputs.lines[i];
        set_gpio(fd, line.group, line.bit, int32_t(pattern >> i & 1));
    }
    usleep(kSettleUs);
    uint32_t seen = 0;
    for (size_t i = 0; i < wiring.inputs.count; ++i) seen |= uint32_t(high(fd, wiring.inputs.lines[i])) << i;
    steps.say("OUT 0x%04X => IN 0x%04X : %s\n", pattern, seen, seen == pattern ? "successful" : "failed");
    return seen == pattern;
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
    bool before[zep::kMaxLines];
    for (size_t i = 0; i < wiring.outputs.count; ++i) before[i] = high(fd, wiring.outputs.lines[i]);
    bool passed = true;
    for (int64_t i = 0; i < rounds && passed; ++i) passed = round_passes(fd, wiring, steps);
    for (size_t i = 0; i < wiring.outputs.count; ++i)
        set_gpio(fd, wiring.outputs.lines[i].group, wiring.outputs.lines[i].bit, before[i]);
    return passed;
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
    int fd = open_gpio();
    if (fd < 0) exit(-1);
    if (read_only) {
        read_out(fd, wiring);
    } else if (wiring.outputs.count == 0 || wiring.outputs.count != wiring.inputs.count) {
        fprintf(stderr,
                "test_dio: %zu outputs and %zu inputs are known; name pairs in /etc/factory_io.conf\n",
                wiring.outputs.count, wiring.inputs.count);
        zep::print_verdict(false);
    } else {
        zep::print_verdict(loop_back(fd, wiring, rounds, steps));
    }
    close_gpio(fd);
    return 0;
}
