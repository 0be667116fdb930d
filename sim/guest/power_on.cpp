// What a camera has in its memory and its chips, as after switching on.
#include "sim/guest/power_on.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/files.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"
#include "sim/board/registers.hpp"
#include "sim/board/rtc_chip.hpp"
#include "sim/board/serial_line.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/own_device.hpp"
#include "sim/models/table.hpp"

namespace vcam {

void power_on(bool realtime, bool owns_pids)
{
    write_file(state::path("modules"), "");
    registers::power_on();
    media::power_on();
    models::power_on_own_devices();
    if (auto wrong = faults::check_plan(try_read_file(state::path("faults")).value_or(""),
                                        models::fault_targets(state::dir()));
        !wrong.empty())
        fail("the fault plan: %s", wrong.c_str());
    auto problem = clock::power_on({.realtime = realtime, .owns_pids = owns_pids});
    if (!problem.empty()) fail("the camera's clock does not start: %s", problem.c_str());
    rtc::load(); // from now on it counts, whether anybody looks or not
    serial::power_on();
}

void power_off()
{
    media::catch_up(media::Locked::Wait::yes);
    registers::power_off();
    clock::power_off();
}

} // namespace vcam
