// test_led: switches the LEDs for an operator to judge.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"
#include "common/fd.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

using zep::Line;
using zep::LineList;
using zep::Steps;

constexpr char kUsage[] =
    "usage: test_led [-v] [-n times] [-t ms] [all|NAME|NUMBER] [blink|on|off]\n"
    "    each state is held for the time given (250 ms); afterwards the LEDs are as before\n";

struct Show {
    const char* action;
    int64_t times;
    int64_t hold_ms;
};

void show_level(int fd, const Line& line, int level, const Show& show, const Steps& steps)
{
    steps.say("LED %d.%d %s %s\n", line.group, line.bit, line.name, level ? "on" : "off");
    set_gpio(fd, line.group, line.bit, level);
    usleep(useconds_t(show.hold_ms * 1000));
}

void show_led(int fd, const Line& line, const Show& show, const Steps& steps)
{
    bool before = get_gpio(fd, line.group, line.bit) != 0;
    for (int64_t i = 0; i < show.times; ++i) {
        if (strcmp(show.action, "off") != 0) show_level(fd, line, 1, show, steps);
        if (strcmp(show.action, "on") != 0) show_level(fd, line, 0, show, steps);
    }
    set_gpio(fd, line.group, line.bit, before);
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
    int fd = open_gpio();
    if (fd < 0) exit(-1);
    show.action = words[1];
    for (size_t i = first; i < last; ++i) show_led(fd, wiring.leds.lines[i], show, steps);
    close_gpio(fd);
    return zep::print_verdict(true);
}
