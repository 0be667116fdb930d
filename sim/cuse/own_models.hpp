// Devices of one's own whose models this server is linked with.
#pragma once

#include "sim/base/device_file.hpp"

#include <span>

namespace vcam::cuse {

std::span<const vcam_device* const> linked_models(); // made by sim/cuse/CMakeLists.txt
// The record of that name; null with a reason.
const vcam_device* linked_code(const device_file::Device& wanted, std::string& reason);

} // namespace vcam::cuse
