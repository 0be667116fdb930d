// Devices of one's own whose models this server is linked with.
#include "sim/cuse/own_models.hpp"
#include "sim/base/text.hpp"

#include <cstring>

namespace vcam::cuse {

const vcam_device* linked_code(const device_file::Device& wanted, std::string& reason)
{
    for (const vcam_device* model : linked_models())
        if (strcmp(model->name, wanted.record.name) == 0) return model;
    reason = text(
        "the camera has the device %s, and this server is not linked with its model; see VCAM_OWN_DEVICES",
        wanted.record.name);
    return nullptr;
}

} // namespace vcam::cuse
