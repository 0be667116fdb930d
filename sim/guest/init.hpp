// pid 1 of the camera.
#pragma once

namespace vcam {

// Signals by which a program ends the camera; kept clear of what programs use themselves.
enum EndSignal { kReboot = 1, kPowerCut = 2, kWatchdog = 3, kPowerOff = 4 }; // added to SIGRTMIN

int init_main(int argc, char** argv);

} // namespace vcam
