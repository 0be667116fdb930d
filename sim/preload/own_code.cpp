// Devices of one's own: their shared objects, loaded into the program that opens the device.
#include "sim/preload/own_code.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"

#include <dlfcn.h>
#include <unistd.h>

namespace vcam {

const vcam_device* load_code(const device_file::Device& wanted, std::string& reason)
{
    constexpr int kBits = 8 * sizeof(void*);
    const std::string file = device_file::place(state::dir(), wanted.record.name, kBits);
    if (::access(file.c_str(), R_OK) != 0) {
        reason = text("the camera has no model for programs of %d bits; give vcam new that file too", kBits);
        return nullptr;
    }
    void* object = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    const void* record = object ? ::dlsym(object, "vcam_model") : nullptr;
    if (const char* said = record ? nullptr : ::dlerror()) reason = said;
    return static_cast<const vcam_device*>(record);
}

} // namespace vcam
