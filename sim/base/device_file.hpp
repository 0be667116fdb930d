// Devices of one's own: shared objects in a camera's folder, read without being run.
#pragma once

#include "sim/base/vcam_device.h"

#include <span>
#include <string>
#include <vector>

namespace vcam::device_file {

// What stands before the functions, the same for all word sizes; the functions are null. Everything in it has been
// checked: texts end, names have the letters that they may have.
struct Device {
    vcam_device record = {};
    int bits = 0;      // of the programs that can load the file: 32 or 64
    bool here = false; // whether they run on this machine
    [[nodiscard]] std::span<const vcam_request> requests() const;
};
inline constexpr size_t kReadable = offsetof(vcam_device, open);

// "" or what is wrong with the file.
std::string inspect(const std::string& file, Device& out, std::string* content = nullptr);
// The same for a record that is in memory already.
std::string inspect(const vcam_device& record);

// Where it stands in a camera's folder, and what a person lays around it there.
std::string place(const std::string& folder, const std::string& name, int bits);
std::string input(const std::string& folder, const std::string& name);

// Those that the folder's camera.conf has, each once. Throws when one cannot be read.
std::vector<Device> of(const std::string& folder);

// Bytes of the record that a request gives and gets.
size_t given(const vcam_request& request);
size_t returned(const vcam_request& request);

} // namespace vcam::device_file
