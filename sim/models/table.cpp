// The simulated devices, each once.
#include "sim/models/table.hpp"
#include "sim/models/own_device.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace vcam::models {
namespace {

template<auto device, unsigned... number> Model& one() { return device(number...); }

constexpr Model& (*kModels[])() = {
    one<mtd, 0>,         one<mtd, 1>,    one<mtd, 2>,     one<mtd, 3>,     one<mtd_block, 3>,
    one<watchdog>,       one<ds1339>,    one<hi3516_reg>, one<gpioi2c>,    one<serial_port, 1>,
    one<serial_port, 2>, one<media_sys>, one<media_mmz>,  one<mem>,        one<media_vb>,
    one<media_ai>,       one<media_ao>,  one<media_aenc>, one<media_adec>, one<media_log>,
    one<acodec>,
};

constexpr bool each_once()
{
    for (const auto* row = std::begin(kModels); row != std::end(kModels); ++row)
        if (std::find(row + 1, std::end(kModels), *row) != std::end(kModels)) return false;
    return true;
}
static_assert(each_once(), "the first match wins, so a second row would be dead");

} // namespace

std::span<Model* const> built_in()
{
    static const auto devices = [] {
        std::array<Model*, std::size(kModels)> out{};
        std::transform(std::begin(kModels), std::end(kModels), out.begin(),
                       [](auto device) { return &device(); });
        return out;
    }();
    return devices;
}

std::vector<Model*> all(const std::string& folder)
{
    std::vector<Model*> devices(built_in().begin(), built_in().end());
    const auto own = own_devices(folder);
    devices.insert(devices.end(), own.begin(), own.end());
    return devices;
}

Model* find(const char* path)
{
    for (const auto& devices : {built_in(), own_devices(state::dir())})
        for (Model* model : devices)
            if (strcmp(model->path, path) == 0) return model;
    return nullptr;
}

namespace {

// Requests may share a name; the longest record counts.
void add_operation(std::vector<faults::Operation>& all, const faults::Operation& operation)
{
    for (faults::Operation& known : all)
        if (known.name == operation.name) {
            known.record = std::max(known.record, operation.record);
            return;
        }
    all.push_back(operation);
}

faults::Target target_of(const Model& model)
{
    // What a request's number can say: the longest record, and that one comes back.
    constexpr uint32_t kLongestRecord = 0x3FFF, kGivesBack = 0x80000000;
    faults::Target target{model.name,
                          faults::Target::Kind::device,
                          {{"open"}, {"mmap"}, {"ioctl", false, false, kLongestRecord}}};
    const bool blocks =
        std::any_of(model.requests.begin(), model.requests.end(), [](auto& row) { return row.has_block; });
    for (const char* name : {"read", "write"})
        if (model.has_bytes()) add_operation(target.operations, {name, true, blocks});
    for (const RequestName& row : model.requests) {
        const bool gives_back = row.request & kGivesBack || model.record(row.request).out;
        add_operation(target.operations, {row.name, false, row.has_block,
                                          gives_back ? uint32_t(model.record_size(row.request)) : 0});
    }
    std::sort(target.operations.begin(), target.operations.end(),
              [](auto& a, auto& b) { return a.name < b.name; });
    return target;
}

} // namespace

std::vector<faults::Target> fault_targets(const std::string& folder)
{
    std::vector<faults::Target> out;
    for (const Model* model : all(folder)) out.push_back(target_of(*model));
    for (const char* name : faults::kCommands) out.push_back({name, faults::Target::Kind::command});
    for (const char* name : faults::kLibraryCalls) out.push_back({name, faults::Target::Kind::library_call});
    return out;
}

} // namespace vcam::models
