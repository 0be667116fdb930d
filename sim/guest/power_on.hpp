// What a camera has in its memory and its chips, as after switching on.
#pragma once

namespace vcam {

// The calendar chip has a battery. owns_pids: the process space is the camera's own. Throws.
void power_on(bool realtime, bool owns_pids);
// After the last program: what the models still hold is written down.
void power_off();

} // namespace vcam
