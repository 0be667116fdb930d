// What a dump of a camera's flash is, seen from a run.
#include "sim/explore/explorer.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/text.hpp"
#include "sim/explore/recorded.hpp"

#include <algorithm>
#include <optional>

namespace vcam::explore {
namespace {

Flash read_dump(const Camera& camera, const std::string& folder)
{
    Flash out;
    for (const auto& p : camera.partitions()) {
        const std::string path = folder + "/" + p.name;
        const std::string bytes = read_file(path);
        if (bytes.size() != p.size)
            fail("%s: %zu bytes, the camera's partition has %llu", path.c_str(), bytes.size(),
                 static_cast<unsigned long long>(p.size));
        out.images.emplace_back(bytes.begin(), bytes.end());
        out.bad.emplace_back(); // a dump does not say
    }
    return out;
}

// How many bytes of the operation make `now` from what stood there; none when no number does.
std::optional<size_t> bytes_done(const Bytes& now, const Bytes& before, const Bytes& after)
{
    size_t done = now.size();
    while (done && now[done - 1] == before[done - 1]) --done;
    if (!std::equal(now.begin(), now.begin() + ptrdiff_t(done), after.begin())) return std::nullopt;
    return done;
}

std::string crc_text(const std::string& content)
{
    return text("%08x", crc32(content.data(), content.size()));
}

cli::Json files_json(const Files& now, const SettingsState& settings)
{
    cli::Json files = cli::Json::object();
    for (const auto& [path, whose] : settings.files) files["/etc/" + path]["whose"] = name_of(whose);
    for (const auto& [path, content] : now) {
        cli::Json& file = files["/etc/" + path];
        file["crc32"] = content ? cli::Json(crc_text(*content)) : cli::Json();
        if (!file.contains("whose")) file["whose"] = "left over";
    }
    return files;
}

// The cut at which the run leaves `flash`, byte for byte; the bytes of an operation are done in rising order.
std::string cut_leaving(const Run& run, const Flash& flash)
{
    FlashState walk(run.camera, run.old, run.finished);
    const uint64_t wanted = FlashState(run.camera, flash, run.finished).hash();
    const auto& operations = run.recording.operations();
    for (size_t i = 0; i < operations.size(); ++i) {
        const Operation& op = operations[i];
        PartitionState& part = walk[op.partition];
        const Torn before = torn(part.bytes(), part.partition().erase_size, op, Form::before, 0);
        const Torn after = torn(part.bytes(), part.partition().erase_size, op, Form::after, 0);
        const auto at = flash.images[op.partition].begin() + before.offset;
        const Bytes now(at, at + ptrdiff_t(before.bytes.size()));
        part.put(before.offset, now); // with these bytes, is the whole the same?
        const bool same = walk.hash() == wanted;
        part.put(before.offset, before.bytes);
        if (const auto done = bytes_done(now, before.bytes, after.bytes); same && done)
            return text("%zu/%zu", i + 1, *done);
        walk.apply(op);
    }
    return "";
}

} // namespace

cli::Json name_dumps(const Camera& camera, const Settings& settings, const std::vector<std::string>& folders)
{
    const Recorded recorded(camera, settings);
    cli::Json all = cli::Json::array();
    for (const auto& folder : folders) {
        const Flash flash = read_dump(camera, folder);
        const Description is = describe(recorded.run, recorded.versions, flash);
        const StateName* name = name_for(is);
        all.push_back({{"folder", folder},
                       {"name", name ? name->name : ""},
                       {"words", words_of(is)},
                       {"point", cut_leaving(recorded.run, flash)},
                       {"files", files_json(settings_in(recorded.run, flash), is.settings)}});
    }
    return all;
}

} // namespace vcam::explore
