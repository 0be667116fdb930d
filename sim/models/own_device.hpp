// Devices of one's own (sim/base/vcam_device.h) as models.
#pragma once

#include "sim/base/device_file.hpp"
#include "sim/models/model.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace vcam::models {

// Those of a camera's folder, made once a process; none where one cannot be read.
std::span<Model* const> own_devices(const std::string& folder);

// The code of a device: null with a reason. A process that has no way to it opens no such device (ENXIO).
using FindCode = const vcam_device* (*)(const device_file::Device& wanted, std::string& reason);
// A server's code may be of another word size than the camera's file, with which sizes in request numbers change: then
// the code's table of requests holds.
enum class Requests : uint8_t { of_file, of_code };
void use_code(FindCode find, Requests requests = Requests::of_file); // before the first device is looked for

// The camera is switched on: their state is zero. Throws where one cannot be read.
void power_on_own_devices();

} // namespace vcam::models
