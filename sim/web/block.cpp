// One erase block, opened: its bytes and what they belong to.
#include "sim/web/block.hpp"
#include "sim/base/text.hpp"
#include "sim/jffs2/jffs2_log.hpp"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vcam::web {
namespace {

constexpr size_t kPiece = 4096, kMostNodes = 200;
constexpr size_t kEnvironment = 0x40000; // of the boot loader's partition

uint32_t load(std::string_view bytes, size_t at, size_t width)
{
    uint32_t value = 0;
    memcpy(&value, bytes.data() + at, width); // little-endian, as this machine
    return value;
}

std::string node_text(std::string_view bytes, size_t at, uint32_t type, uint32_t size)
{
    using namespace jffs2;
    if (type == kDirentNode && size >= kDirentSize) {
        const size_t length = std::min<size_t>(uint8_t(bytes[at + 28]), size - kDirentSize);
        return text("name \"%s\" of inode %u, version %u",
                    one_line(bytes.substr(at + kDirentSize, length)).c_str(), load(bytes, at + 20, 4),
                    load(bytes, at + 16, 4));
    }
    if (type == kInodeNode && size >= kInodeSize)
        return text("data of inode %u, version %u: %u bytes at %u", load(bytes, at + 12, 4),
                    load(bytes, at + 16, 4), load(bytes, at + 52, 4), load(bytes, at + 44, 4));
    return type == kCleanMarker ? "clean marker" : text("node of type 0x%04x", type);
}

cli::Json nodes_of(std::string_view bytes)
{
    cli::Json out = cli::Json::array();
    for (size_t at = 0; at + jffs2::kHeaderSize <= bytes.size() && out.size() < kMostNodes;) {
        const uint32_t size = load(bytes, at + 4, 4);
        if (load(bytes, at, 2) != jffs2::kMagic || size < jffs2::kHeaderSize || size > bytes.size() - at) {
            at += 4;
            continue;
        }
        out.push_back({{"offset", at}, {"text", node_text(bytes, at, load(bytes, at + 2, 2), size)}});
        at += (size + 3) & ~3u;
    }
    return out;
}

std::string belongs(const std::string& partition, uint64_t offset)
{
    if (partition == "mtd0")
        return offset == kEnvironment ? "the boot loader's environment" : "the boot loader";
    if (partition == "mtd1") return "the kernel image";
    if (partition == "mtd2") return "the root file system image";
    return "the settings, a JFFS2 file system";
}

} // namespace

cli::Json block_json(const Camera& camera, const std::string& partition, uint64_t block, uint64_t piece)
{
    const Partition& p = camera.partition(partition);
    if (block >= p.size / p.erase_size || piece >= std::max<uint64_t>(1, p.erase_size / kPiece))
        fail("%s has no block %llu", partition.c_str(), (unsigned long long)block);
    const Fd fd(open(camera.image(p).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string bytes(p.erase_size, '\xFF');
    if (!fd || pread(fd.get(), bytes.data(), bytes.size(), off_t(block * p.erase_size)) < 0)
        fail("cannot read %s", partition.c_str());
    std::string hex;
    for (const unsigned char c : bytes.substr(piece * kPiece, kPiece)) hex += text("%02x", c);
    return {{"offset", block * p.erase_size},
            {"crc32", text("%08x", crc32(bytes.data(), bytes.size()))},
            {"belongs", belongs(partition, block * p.erase_size)},
            {"nodes", partition == "mtd3" ? nodes_of(bytes) : cli::Json::array()},
            {"piece", piece},
            {"bytes", hex}};
}

} // namespace vcam::web
