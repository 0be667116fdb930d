// Every cut of the power in a recorded run, by replaying its record.
#include "sim/explore/cuts.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <unordered_map>

namespace vcam::explore {
namespace {

constexpr unsigned kSettings = 3; // the partition's number
constexpr uint32_t kTellEvery = 64;

uint64_t seed_of(const Run& run, size_t operation) { return mixed(run.seed) + operation; }

class Walk {
public:
    Walk(const Run& run, const Versions& versions)
        : run_(run), versions_(versions), flash_(run.camera, run.old, run.finished)
    {
    }

    Cuts go(const std::function<void(double)>& told)
    {
        const auto& operations = run_.recording.operations();
        for (size_t i = 0; i < operations.size(); ++i) {
            if (i % kTellEvery == 0) told(double(i) / double(operations.size()));
            step(operations[i], uint32_t(i));
        }
        if (operations.empty()) note(0, Form::before);
        if (flash_.flash() != run_.finished)
            fail("the record does not lead to the flash that the run left: something changed the flash past "
                 "it");
        return std::move(cuts_);
    }

private:
    void step(const Operation& op, uint32_t number)
    {
        PartitionState& part = flash_[op.partition];
        for (const Form form : forms_of(op.kind)) {
            if (form == Form::before)
                note(number, form);
            else if (form == Form::after)
                flash_.apply(op), note(number, form);
            else
                tear(part, op, number, form);
        }
    }
    void tear(PartitionState& part, const Operation& op, uint32_t number, Form form)
    {
        const Torn left = torn(part.bytes(), part.partition().erase_size, op, form, seed_of(run_, number));
        const auto begin = part.bytes().begin() + left.offset;
        const Bytes kept(begin, begin + ptrdiff_t(left.bytes.size()));
        part.put(left.offset, left.bytes);
        note(number, form);
        part.put(left.offset, kept);
    }
    void note(uint32_t operation, Form form)
    {
        const auto point = uint32_t(cuts_.points.size());
        const auto [known, fresh] = by_hash_.try_emplace(flash_.hash(), uint32_t(cuts_.states.size()));
        if (fresh) {
            const Description d = description();
            cuts_.states.push_back({d, name_for(d), point, 0});
        }
        ++cuts_.states[known->second].points;
        cuts_.points.push_back({operation, form, known->second});
    }
    Description description()
    {
        const auto [settings, fresh] = settings_.try_emplace(flash_[kSettings].hash());
        if (fresh) settings->second = judge(settings_in(), versions_);
        return {content_of(flash_[0]), content_of(flash_[1]), content_of(flash_[2]), settings->second};
    }

    [[nodiscard]] Files settings_in() const
    {
        const PartitionState& part = flash_[kSettings];
        return files_of(part.bytes(), part.partition().erase_size, part.bad_blocks());
    }

    const Run& run_;
    const Versions& versions_;
    FlashState flash_;
    std::unordered_map<uint64_t, uint32_t> by_hash_;
    std::unordered_map<uint64_t, SettingsState> settings_; // by the hash of the partition
    Cuts cuts_;
};

// `tear` makes a Torn of the image in which the operation breaks off.
template<class Tear> Flash torn_at(const Run& run, uint32_t operation, Tear tear)
{
    Flash flash = run.old;
    const auto& operations = run.recording.operations();
    if (operations.empty()) return flash;
    for (size_t i = 0; i < operation; ++i) apply(flash, run.camera, operations[i]);
    const Operation& op = operations[operation];
    Bytes& image = flash.images[op.partition];
    const Torn left = tear(image, run.camera.partitions()[op.partition].erase_size, op);
    std::copy(left.bytes.begin(), left.bytes.end(), image.begin() + left.offset);
    return flash;
}

} // namespace

Files settings_in(const Run& run, const Flash& flash)
{
    return files_of(flash.images[kSettings], run.camera.partitions()[kSettings].erase_size,
                    flash.bad[kSettings]);
}

constexpr int kFirstProcess = 1; // serves the settings' file system, and collects its garbage

// The process that erased most of the settings partition has written the package's there, up to its last write.
Stretch package_stretch(const std::vector<Operation>& operations)
{
    std::map<int, uint64_t> erased;
    int writer = 0;
    for (const auto& op : operations)
        if (op.partition == kSettings && op.kind == flash::Kind::erase && op.pid != kFirstProcess &&
            (erased[op.pid] += op.size) > erased[writer])
            writer = op.pid;
    Stretch found;
    for (size_t i = 0; writer && i < operations.size(); ++i) {
        if (operations[i].partition != kSettings || operations[i].pid != writer) continue;
        if (found.end == 0) found.begin = i;
        found.end = i + 1;
    }
    return found;
}

std::string name_of(const Point& point) { return text("%u/%s", point.operation + 1, name_of(point.form)); }

Versions versions_of(const Run& run)
{
    Flash flash = run.old;
    Versions versions = {settings_in(run, flash), {}, std::nullopt, std::nullopt};
    const auto& operations = run.recording.operations();
    const size_t package = package_stretch(operations).end;
    for (size_t i = 0; i < operations.size(); ++i) {
        apply(flash, run.camera, operations[i]);
        if (i + 1 == package) versions.package = settings_in(run, flash);
    }
    versions.finished = settings_in(run, flash);
    return versions;
}

Description describe(const Run& run, const Versions& versions, const Flash& flash)
{
    const auto content = [&](size_t i) {
        return content_of(flash.images[i], run.old.images[i], run.finished.images[i]);
    };
    return {content(0), content(1), content(2), judge(settings_in(run, flash), versions)};
}

Cuts cut_everywhere(const Run& run, const Versions& versions, const std::function<void(double)>& told)
{
    return Walk(run, versions).go(told);
}

Flash flash_at(const Run& run, const Point& point)
{
    const bool whole = point.form == Form::after;
    Flash flash =
        torn_at(run, point.operation, [&](const Bytes& image, uint64_t erase_size, const Operation& op) {
            return torn(image, erase_size, op, whole ? Form::before : point.form,
                        seed_of(run, point.operation));
        });
    if (whole && !run.recording.operations().empty())
        apply(flash, run.camera, run.recording.operations()[point.operation]);
    return flash;
}

Flash flash_at(const Run& run, uint32_t operation, size_t bytes_done)
{
    return torn_at(run, operation, [&](const Bytes& image, uint64_t erase_size, const Operation& op) {
        return torn(image, erase_size, op, bytes_done);
    });
}

} // namespace vcam::explore
