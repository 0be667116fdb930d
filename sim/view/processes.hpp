// The programs that run in a camera, and what is mounted in its slots.
#pragma once

#include "sim/base/camera.hpp"

#include <string>
#include <sys/types.h>
#include <vector>

namespace vcam {

struct Process {
    pid_t host = 0;
    int depth = 0; // below the camera's first process
    std::string command;
};
// In the order of a tree; the camera's first process is not among them. Empty when the camera is off.
std::vector<Process> processes(pid_t init);
// "sd" and "usb" as far as a medium is in the slot.
std::vector<std::string> media_slots(pid_t init);

// The first process of the camera in `folder` as one to signal, -1 when the camera is off. Files in the folder may have
// been written by a program of the camera and are not trusted: the process must be the first one of its space and see
// that very folder, or be a child of `launcher`, the vcam run that the caller started (0: none).
Fd open_init(const std::string& folder, pid_t launcher);

} // namespace vcam
