// The camera's power: ways to lose it, and what is left then.
#pragma once

#include <string_view>

namespace vcam::power {

enum class Loss { reboot = 1, cut = 2, watchdog = 3, off = 4 }; // the offset from SIGRTMIN that tells pid 1

// Ends the camera. In a camera with a process space of its own this does not return: the space is
// about to be killed. Elsewhere the power is off from now on and simulated devices answer EIO.
// The line of the fault plan that did it, if one did, is left in the file `cause`.
void lose(Loss how, std::string_view cause = {});
// True while the devices have power. In a camera that has lost it, the caller stays here for ever.
bool on();

} // namespace vcam::power
