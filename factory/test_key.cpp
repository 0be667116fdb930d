// test_key: waits until the key has been pressed and released.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include "board/gpio.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace {

using zep::Line;

constexpr char kUsage[] = "usage: test_key [-v] [-t seconds]\n"
                          "    press and release the key within the limit (10 s unless given)\n";
constexpr useconds_t kPollUs = 10'000;
constexpr int64_t kStableMs = 30; // contacts bounce for less

int64_t now_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

class Key {
public:
    Key(int fd, const Line& line, int32_t active) : fd_(fd), line_(line), active_(active) {}

    // Waits until the key has kept the state for kStableMs; when that began, or -1 after the deadline.
    int64_t wait(bool pressed, int64_t deadline) const
    {
        int64_t since = -1;
        for (int64_t now = now_ms(); now < deadline; now = now_ms()) {
            if (is_pressed() != pressed)
                since = -1;
            else if (since < 0)
                since = now;
            else if (now - since >= kStableMs)
                return since;
            usleep(kPollUs);
        }
        return -1;
    }

private:
    [[nodiscard]] bool is_pressed() const
    {
        return (get_gpio(fd_, line_.group, line_.bit) != 0) == (active_ != 0);
    }

    int fd_;
    Line line_;
    int32_t active_;
};

// Released, pressed, released again: a key that hangs from the start does not pass.
bool pressed_and_released(const Key& key, int64_t limit_s)
{
    int64_t deadline = now_ms() + limit_s * 1000;
    if (key.wait(false, deadline) < 0) return false;
    int64_t pressed = key.wait(true, deadline);
    if (pressed < 0) return false;
    int64_t released = key.wait(false, deadline);
    if (released < 0) return false;
    printf("PRESSED %d ms\n", int(released - pressed));
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
        fprintf(stderr, "test_key: no key line is known for this model; name it in /etc/factory_io.conf\n");
        return zep::print_verdict(false);
    }
    int fd = open_gpio();
    if (fd < 0) exit(-1);
    const Line& line = wiring.key.lines[0];
    steps.say("KEY %d.%d: press and release within %d s\n", line.group, line.bit, int(limit_s));
    bool passed = pressed_and_released(Key(fd, line, wiring.key_active), limit_s);
    close_gpio(fd);
    return zep::print_verdict(passed);
}
