// The host programs' parsers: what a camera's folder, a sound file, a manifest, a line file or a console may hold.
#include "fuzz/fuzz.hpp"

#include "sim/base/camera.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/text.hpp"
#include "sim/jffs2/jffs2_log.hpp"
#include "sim/models/wav.hpp"
#include "tools/audio/wav.hpp"
#include "tools/fwpkg/manifest.hpp"
#include "tools/station/target/console_text.hpp"
#include "tools/station/line.hpp"
#include "tools/station/text.hpp"

#include <algorithm>
#include <sstream>
#include <zlib.h>

namespace {

std::span<const uint8_t> octets(std::string_view bytes)
{
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

uint32_t crc(std::string_view bytes) { return vcam::jffs2::crc32(octets(bytes)); }

// What zlib makes of it too; its own check sum behind the stream is not asked for.
void try_inflate(std::string_view bytes)
{
    Input input(bytes);
    const size_t size = size_t(input.byte()) * 4;
    std::vector<uint8_t> out(size), expected(size + 1);
    const bool good = vcam::jffs2::inflate_zlib(octets(input.rest()), out);
    vcam::jffs2::inflate_rtime(octets(input.rest()), expected);
    if (input.rest().size() < 2) return must(!good);
    z_stream stream = {};
    stream.next_in = const_cast<Bytef*>(octets(input.rest()).data() + 2);
    stream.avail_in = uInt(input.rest().size() - 2);
    stream.next_out = expected.data();
    stream.avail_out = uInt(expected.size());
    must(inflateInit2(&stream, -15) == Z_OK);
    const bool ended = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    if (good) must(ended && stream.total_out == size && std::equal(out.begin(), out.end(), expected.begin()));
    inflateEnd(&stream);
}

// Nodes with right check sums: a fuzzer does not guess them.
void mend_nodes(std::string& image)
{
    const auto put = [&](size_t at, uint32_t value) { memcpy(&image[at], &value, 4); };
    const auto word = [&](size_t at) {
        uint32_t v;
        memcpy(&v, &image[at], 4);
        return v;
    };
    for (size_t at = 0; at + 12 <= image.size(); at += 4) {
        if (image.compare(at, 2, "\x85\x19") != 0) continue;
        const size_t left = image.size() - at;
        const std::string_view node(&image[at], left);
        if (word(at + 4) > left) put(at + 4, uint32_t(left));
        std::string head(node.substr(0, 8));
        head[3] = char(head[3] | 0x20);
        put(at + 8, crc(head));
        if (image[at + 2] == 1 && left >= 40) {
            put(at + 32, crc(node.substr(0, 32)));
            put(at + 36, crc(node.substr(40, uint8_t(node[28]))));
        } else if (image[at + 2] == 2 && left >= 68) {
            put(at + 60, crc(node.substr(68, word(at + 48))));
            put(at + 64, crc(node.substr(0, 60)));
        }
    }
}

void try_jffs2(std::string_view bytes)
{
    std::string mended(bytes);
    mend_nodes(mended);
    for (const std::string& image : {std::string(bytes), mended}) {
        const auto log = vcam::jffs2::scan(octets(image));
        for (const auto& [number, inode] : log.inodes) {
            uint64_t most = 0; // a damaged size costs memory, which is bounded
            for (const auto& [version, node] : inode.nodes)
                most = std::max(most, uint64_t(node.offset) + node.dsize);
            vcam::jffs2::Bytes out;
            if (most <= 65536) vcam::jffs2::contents(inode, out);
        }
        for (const auto& room : vcam::jffs2::find_room(octets(image), 128))
            must(room.begin < room.end && room.end <= image.size() &&
                 room.begin / 128 == (room.end - 1) / 128);
    }
}

void try_fault_plan(std::string_view bytes)
{
    using Named = vcam::faults::Target;
    static const std::vector<Named> targets = {
        {"mtd1", Named::Kind::device, {{"open"}, {"read", true}, {"write", true}, {"erase", false, true}}},
        {"ai", Named::Kind::device, {{"enable"}, {"getframe", false, false, 40}}},
        {"umount", Named::Kind::command},
        {"rename", Named::Kind::library_call},
        {"read", Named::Kind::library_call},
    };
    const std::string plan(bytes);
    const std::string problem = vcam::faults::check_plan(plan, targets);
    must(vcam::faults::check_plan(plan + "\n# a comment\n\n", targets) == problem);
    must(vcam::faults::check_plan(plan + "\nmtd9 0 1 EIO\n", targets) != "");
}

void try_camera_conf(std::string_view bytes)
{
    for (const auto& [key, value] : vcam::parse_settings(std::string(bytes))) {
        must(vcam::trim(key) == key && vcam::trim(value) == value);
        try {
            const vcam::Partition p = vcam::parse_partition(key, value);
            const vcam::Partition again = vcam::parse_partition(key, vcam::format_geometry(p));
            must(again.size == p.size && again.erase_size == p.erase_size && again.type == p.type);
        } catch (const vcam::Error&) {
        }
        try {
            must(vcam::parse_daemon(value).path.starts_with("/"));
        } catch (const vcam::Error&) {
        }
    }
}

void try_wav(std::string_view bytes)
{
    const vcam::wav::Reader reader("sound.wav", {bytes.begin(), bytes.end()});
    must(reader.error().empty() || reader.points() == 0);
    for (int64_t point : {int64_t(-1), int64_t(0), reader.points() - 1, reader.points()})
        must(std::abs(reader.at(point, reader.channels() - 1)) <= 32768);
    std::istringstream file{std::string(bytes)};
    zaudio::promised_end(file);
}

void try_manifest(std::string_view bytes)
{
    Outside outside;
    outside.file("manifest", bytes);
    outside.file("package", "package");
    fwpkg::Input package;
    package.open("package");
    try {
        must(fwpkg::compare_with_manifest("manifest", package, {}).find('\n') == std::string::npos);
    } catch (const std::runtime_error&) {
    }
}

void try_line_file(std::string_view bytes)
{
    try {
        const station::ProductionLine line = station::parse_line("line.toml", bytes);
        for (const station::Test& test : line.tests)
            must(!line.name.empty() && !test.name.empty() && test.repeat >= 1 && test.limit_s > 0);
    } catch (const std::runtime_error& e) {
        must(std::string(e.what()).starts_with("line.toml"));
    }
}

void try_console(std::string_view bytes)
{
    const std::string key = "0badcafe", text(bytes);
    const auto frame = station::find_frame(text, key);
    if (frame && frame->intact()) must(text.find("<" + key + ":") != text.npos);
    must(text.find(station::body_so_far(text, key)) != text.npos);
    must(station::unedited(text).find('\n') == text.npos);
    station::without_terminal(text);
    station::prompt_of(text);
    station::shows_boot(text);
    for (char c : station::harmless(text)) must(uint8_t(c) >= ' ' || c == '\n' || c == '\t');
    must(station::harmless_line(text).find('\n') == text.npos);
    station::last_line(text);
    must(station::escaped(text).find('<') == text.npos);
}

} // namespace

const std::vector<Target> kTargets = {
    {"inflate", try_inflate},
    {"jffs2", try_jffs2},
    {"fault_plan", try_fault_plan, 256},
    {"camera_conf", try_camera_conf, 256},
    {"wav", try_wav, 256},
    {"manifest", try_manifest, 1024},
    {"line_file", try_line_file, 1024},
    {"console", try_console, 256},
};
