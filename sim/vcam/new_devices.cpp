// Devices of one's own that a new camera gets: their files, unlike those that it has already.
#include "sim/vcam/new_devices.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/table.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vcam {
namespace {

// A fault plan and the journal must know whom a name means.
void refuse_taken(const vcam_device& record)
{
    for (const Model* model : models::built_in())
        if (strcmp(record.path, model->path) == 0) fail("its path %s is the camera's own", record.path);
    bool taken = std::find(std::begin(journal::kSources), std::end(journal::kSources),
                           std::string_view(record.name)) != std::end(journal::kSources);
    for (const auto& target : models::fault_targets("")) taken |= target.name == record.name;
    if (taken) fail("its device's name %s is the camera's own", record.name);
}

// The same device, for programs of the other word size: sizes in its requests' numbers may differ.
bool twins(const device_file::Device& a, const device_file::Device& b)
{
    vcam_device records[] = {a.record, b.record};
    for (vcam_device& record : records)
        for (vcam_request& request : record.requests) request.number = request.in = request.out = 0;
    return a.bits != b.bits && memcmp(&records[0], &records[1], device_file::kReadable) == 0;
}

} // namespace

void NewDevices::add(const std::string& file)
{
    Given added{file, {}, {}};
    if (const std::string problem = device_file::inspect(file, added.device, &added.content);
        !problem.empty())
        fail("%s", problem.c_str());
    if (!added.device.here)
        fail("is for another processor than this PC's; give what the PC's compiler makes of the model");
    const vcam_device& record = added.device.record;
    refuse_taken(record);
    for (const Given& other : given_) {
        if (!twins(added.device, other.device) && (strcmp(record.name, other.device.record.name) == 0 ||
                                                   strcmp(record.path, other.device.record.path) == 0))
            fail("is the device %s at %s, which %s is already", record.name, record.path, other.file.c_str());
    }
    given_.push_back(added);
}

std::vector<std::string> NewDevices::names() const
{
    std::vector<std::string> out;
    for (const Given& one : given_)
        if (std::find(out.begin(), out.end(), one.device.record.name) == out.end())
            out.emplace_back(one.device.record.name);
    return out;
}

void NewDevices::lay(const Camera& camera) const
{
    if (!given_.empty()) make_folders(camera.path("devices"));
    for (const Given& one : given_)
        write_file(device_file::place(camera.folder(), one.device.record.name, one.device.bits), one.content);
}

} // namespace vcam
