// test_key: waits until the key has been pressed and released.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/saved_lines.hpp"
#include "factory/verdict.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"
#include "common/base/monotonic.hpp"

#include <cstdio>

namespace {

using zep::BoardGuard;
using zep::GpioLine;
using zep::monotonic_ms;

constexpr char kUsage[] = "usage: test_key [-v] [-t seconds]\n"
                          "    press and release the key within the limit (10 s unless given)\n";
constexpr int64_t kPollMs = 10;
constexpr int64_t kStableMs = 30; // contacts bounce for less

class Key {
public:
    Key(int fd, const GpioLine& line, int32_t active) : fd_(fd), line_(line), active_(active) {}

    // Waits until the key has kept the state for kStableMs; when that began, or -1 after the deadline, when
    // the driver refuses or a signal came.
    [[nodiscard]] int64_t wait(bool pressed, int64_t deadline) const
    {
        int64_t since = -1;
        for (int64_t now = monotonic_ms(); now < deadline; now = monotonic_ms()) {
            int32_t level = get_gpio(fd_, line_.group, line_.bit);
            if (level < 0) return -1;
            if (((level != 0) == (active_ != 0)) != pressed)
                since = -1;
            else if (since < 0)
                since = now;
            else if (now - since >= kStableMs)
                return since;
            if (!BoardGuard::pause_ms(kPollMs)) return -1;
        }
        return -1;
    }

private:
    int fd_;
    GpioLine line_;
    int32_t active_;
};

// Released, pressed, released again: a key that hangs from the start does not pass.
bool pressed_and_released(const Key& key, int64_t limit_s, const zep::Steps& steps)
{
    int64_t deadline = monotonic_ms() + limit_s * 1000;
    if (key.wait(false, deadline) < 0) return false;
    int64_t pressed = key.wait(true, deadline);
    if (pressed < 0) return false;
    int64_t released = key.wait(false, deadline);
    if (released < 0) return false;
    steps.say("PRESSED %d ms\n", int(released - pressed));
    return true;
}

} // namespace

int test_key_main(int argc, char** argv)
{
    zep::Steps steps;
    int64_t limit_s = 10;
    const zep::Option options[] = {{"-v", &steps.verbose}, {"-t", nullptr, &limit_s, 1, 3600}};
    zep::Wiring wiring;
    if (!zep::parse_options(argc, argv, options, nullptr, 0, kUsage) || !zep::load_wiring(wiring))
        return zep::print_verdict(false);
    if (wiring.key.count != 1) {
        fprintf(stderr, "test_key: %s; name one in /etc/factory_io.conf\n",
                wiring.key.count == 0 ? "no key line is known for this model"
                                      : "several key lines are named");
        return zep::print_verdict(false);
    }
    BoardGuard guard;
    int fd = open_gpio();
    if (fd < 0 || !claim_lines(fd, wiring.key.all(), argv[0])) guard.give_up();
    const GpioLine& line = wiring.key.lines[0];
    fprintf(stderr, "KEY %d.%d: press and release within %d s\n", line.group, line.bit, int(limit_s));
    zep::SavedLines lines(fd, argv[0]);
    bool passed = lines.save(wiring.key.all()) &&
                  pressed_and_released(Key(fd, line, wiring.key_active), limit_s, steps);
    passed &= lines.restore();
    close_gpio(fd);
    return guard.verdict(passed);
}
