// vcam pin, rtc: what the board is wired to, and its real-time clock.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/board/pins.hpp"
#include "sim/board/rtc_chip.hpp"
#include "sim/base/state.hpp"

#include <cstdio>

namespace vcam {
namespace {

void attach(const Camera& camera)
{
    state::set_dir(camera.folder());
    clock::attach();
}

// "8.1 press +0.5 0.3" counts from now on: the file holds camera seconds.
std::string absolute(const std::string& line)
{
    auto words = split(line, ' ');
    if (words.size() < 3 || words[1] != "press" || words[2][0] != '+') return line;
    const double at = double(clock::now_ns()) / 1e9 + parse_seconds(words[2].substr(1), "pin");
    words[2] = text("%.3f", at);
    return join(words, " ");
}

void set_time(rtc::Chip& chip, const std::string& when)
{
    rtc::Time time = {};
    if (!rtc::parse(when, time))
        wrong_use(text("'%s' is no time such as \"2012-02-28 23:59:58\" from 2000 to 2099", when.c_str()));
    chip.set = time;
    chip.at_ns = clock::now_ns();
}

void set_fault(rtc::Chip& chip, const std::string& name)
{
    // What it has counted so far stays; a stopped one goes on from where it stood.
    chip.set = rtc::counted(chip);
    chip.at_ns = clock::now_ns();
    if (name == "none") {
        chip.stopped = chip.no_leap = chip.bcd = false;
        chip.drift = 0;
    } else if (!rtc::add_fault(chip, name))
        wrong_use(text("there are the faults stopped, no-leap, bcd, drift=PERMILLE and none, not %s",
                       name.c_str()));
}

} // namespace

int pin_main(const Arguments& arguments)
{
    bool clear = false;
    auto words = cli::parse(arguments,
                            {{{"--clear", nullptr, "forget all wiring first", [&](auto&) { clear = true; }}},
                             {kCamera},
                             "LINE..."});
    const Camera camera(words.plain[0]);
    attach(camera);
    for (auto& line : words.rest) {
        if (trim(line).empty()) wrong_use("a line is empty; write it as \"4.0 wire 5.0\"");
        line = absolute(line);
        if (auto problem = pins::check(line); !problem.empty())
            wrong_use(words.rest.size() > 1 ? text("\"%s\": %s", line.c_str(), problem.c_str()) : problem);
    }
    if (clear) write_file(camera.path("pins"), "");
    for (const auto& line : words.rest) append_file(camera.path("pins"), line + "\n");
    if (words.rest.empty() && !clear) fputs(try_read_file(camera.path("pins")).value_or("").c_str(), stdout);
    return 0;
}

int rtc_main(const Arguments& arguments)
{
    std::string when;
    std::vector<std::string> faults;
    auto words = cli::parse(
        arguments,
        {{{"--set", "\"DATE TIME\"", "what it counts from now on", [&](auto& v) { when = cli::given(v); }},
          {"--fault", "NAME", "stopped, no-leap, bcd, drift=PERMILLE; none heals the chip",
           [&](auto& v) { faults.push_back(v); }, "stopped no-leap bcd drift= none"}},
         {kCamera}});
    const Camera camera(words.plain[0]);
    attach(camera);
    if (when.empty() && faults.empty() && !exists(camera.path("rtc")))
        fail("rtc: the camera never ran and its clock was never set");
    rtc::Chip chip = rtc::load();
    for (const auto& name : faults) set_fault(chip, name);
    if (!when.empty()) set_time(chip, when);
    if (!rtc::store(chip)) fail("rtc: cannot write %s", camera.path("rtc").c_str());
    const std::string words_of_faults = rtc::faults(chip);
    printf("%s%s%s\n", rtc::format(rtc::counted(chip)).c_str(), words_of_faults.empty() ? "" : ", ",
           words_of_faults.c_str());
    return 0;
}

} // namespace vcam
