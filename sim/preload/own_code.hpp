// Devices of one's own in a program of the camera.
#pragma once

#include "sim/base/device_file.hpp"

namespace vcam {

// Loads the shared object that the camera's folder has for programs of this word size. Null with a reason.
const vcam_device* load_code(const device_file::Device& wanted, std::string& reason);

} // namespace vcam
