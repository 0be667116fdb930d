// test_led: switches the LEDs for an operator to judge.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/saved_lines.hpp"
#include "factory/verdict.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"

#include <cstdio>
#include <cstring>

namespace {

using zep::BoardGuard;
using zep::GpioLine;
using zep::LineList;
using zep::Steps;

constexpr char kUsage[] =
    "usage: test_led [-v] [-n times] [-t ms] [all|NAME|NUMBER [blink|on|off]]\n"
    "    each state is held for the time given (250 ms); afterwards the LEDs are as before\n";

struct Show {
    const char* action;
    int64_t times;
    int64_t hold_ms;
};

// Drives the LED and holds it. False when the driver does not give back what was asked for, or a signal came.
bool show_level(int fd, const GpioLine& line, int level, const Show& show, const Steps& steps)
{
    set_gpio(fd, line.group, line.bit, level);
    GPIO_STATE_S now = {};
    bool ok = save_gpio(fd, line.group, line.bit, &now) == 0 && now.output && now.level == level;
    steps.say("LED %d.%d %s %s : %s\n", line.group, line.bit, line.name, level ? "on" : "off",
              ok ? "successful" : "failed");
    return ok && BoardGuard::pause_ms(show.hold_ms);
}

bool show_led(int fd, const GpioLine& line, const Show& show, const Steps& steps)
{
    const bool on = strcmp(show.action, "off") != 0;
    const bool off = strcmp(show.action, "on") != 0;
    for (int64_t i = 0; i < show.times; ++i)
        if ((on && !show_level(fd, line, 1, show, steps)) || (off && !show_level(fd, line, 0, show, steps)))
            return false;
    return true;
}

// Each LED as it was before the next one's turn.
bool show_leds(int fd, std::span<const GpioLine> leds, const Show& show, const Steps& steps)
{
    for (const GpioLine& led : leds) {
        zep::SavedLines before(fd, "test_led");
        bool passed = before.save({&led, 1}) && show_led(fd, led, show, steps);
        passed &= before.restore();
        if (!passed) return false;
    }
    return true;
}

// "all", a name, or a number from 1 on. False when there is no such LED.
bool choose(const char* which, const LineList& leds, size_t& first, size_t& last)
{
    first = 0;
    last = leds.count;
    if (strcmp(which, "all") == 0) return leds.count > 0;
    int64_t number = 0;
    for (size_t i = 0; i < leds.count && number == 0; ++i)
        if (strcmp(which, leds.lines[i].name) == 0) number = int64_t(i) + 1;
    if (number == 0 && !zep::parse_number(which, 1, int64_t(leds.count), number)) return false;
    first = size_t(number) - 1;
    last = size_t(number);
    return true;
}

bool known_action(const char* action)
{
    return strcmp(action, "blink") == 0 || strcmp(action, "on") == 0 || strcmp(action, "off") == 0;
}

} // namespace

int test_led_main(int argc, char** argv)
{
    Steps steps;
    Show show = {"blink", 3, 250};
    const zep::Option options[] = {{"-v", &steps.verbose},
                                   {"-n", nullptr, &show.times, 1, 1000},
                                   {"-t", nullptr, &show.hold_ms, 1, 60'000}};
    const char* words[2] = {"all", "blink"};
    zep::Wiring wiring;
    if (!zep::parse_options(argc, argv, options, words, 2, kUsage) || !zep::load_wiring(wiring))
        return zep::print_verdict(false);
    size_t first = 0;
    size_t last = 0;
    if (!choose(words[0], wiring.leds, first, last) || !known_action(words[1])) {
        fprintf(stderr, "test_led: %s %s: this board has %zu LEDs\n%s", words[0], words[1], wiring.leds.count,
                kUsage);
        return zep::print_verdict(false);
    }
    show.action = words[1];
    BoardGuard guard;
    int fd = open_gpio();
    if (fd < 0 || !claim_lines(fd, wiring.leds.all(), argv[0])) guard.give_up();
    bool passed = show_leds(fd, wiring.leds.all().subspan(first, last - first), show, steps);
    close_gpio(fd);
    return guard.verdict(passed);
}
