// Scanning a JFFS2 log: every node is checked before anything of it is used, so an image of any
// bytes gives some log and never a stray read.
#include "sim/jffs2/jffs2_log.hpp"
#include "sim/base/raw.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace vcam::jffs2 {
namespace {

constexpr uint16_t kAccurate = 0x2000; // cleared in place when a NOR node becomes obsolete

constexpr std::array<uint32_t, 256> make_table()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr auto kCrcTable = make_table();

// A record at a position that has been checked to hold it.
struct Record {
    std::span<const uint8_t> bytes;
    [[nodiscard]] uint32_t u16(size_t at) const { return bytes[at] | uint32_t(bytes[at + 1]) << 8; }
    [[nodiscard]] uint32_t u32(size_t at) const { return u16(at) | u16(at + 2) << 16; }
    [[nodiscard]] bool crc_fits(size_t length, size_t stored_at) const
    {
        return crc32(bytes.first(length)) == u32(stored_at);
    }
};

// Total length of the node at the record's start, 0 when there is none.
uint32_t node_length(Record r)
{
    if (r.bytes.size() < kHeaderSize || r.u16(0) != kMagic) return 0;
    std::array<uint8_t, 8> head;
    std::copy_n(r.bytes.begin(), 8, head.begin());
    head[3] |= kAccurate >> 8; // the checksum was made before the mark was cleared
    const uint32_t length = r.u32(4);
    if (crc32(head) != r.u32(8) || length < kHeaderSize || length > r.bytes.size()) return 0;
    return length;
}

void take_dirent(Log& log, Record r, uint32_t position)
{
    if (r.bytes.size() < kDirentSize || !r.crc_fits(32, 32)) return;
    const uint32_t size = r.bytes[28];
    if (kDirentSize + size > r.bytes.size()) return;
    const auto text = r.bytes.subspan(kDirentSize, size);
    if (crc32(text) != r.u32(36)) return;
    const std::string name(text.begin(), text.end());
    // A name that could lead out of its folder was never made by a file system.
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view("/\0", 2)) != name.npos)
        return;
    const uint32_t parent = r.u32(12);
    const Name found = {r.u32(16), r.u32(20), r.u32(24), position, aligned(uint32_t(r.bytes.size()))};
    auto [it, fresh] = log.folders[parent].try_emplace(name, found);
    if (!fresh && found.version >= it->second.version) it->second = found;
    log.names.push_back({parent, name, found});
    log.highest_ino = std::max({log.highest_ino, parent, found.ino});
}

void take_inode(Log& log, Record r, uint32_t position)
{
    if (r.bytes.size() < kInodeSize || !r.crc_fits(60, 64)) return;
    const uint32_t csize = r.u32(48), ino = r.u32(12);
    log.highest_ino = std::max(log.highest_ino, ino);
    Inode& inode = log.inodes[ino]; // known by its header, whatever became of the data
    if (csize > r.bytes.size() - kInodeSize) return;
    const auto packed = r.bytes.subspan(kInodeSize, csize);
    if (crc32(packed) != r.u32(60)) return;
    const uint32_t offset = r.u32(44), dsize = r.u32(52), isize = r.u32(28);
    if (isize > kMaxFile || offset > kMaxFile || dsize > kMaxFile - offset) return;
    inode.nodes[r.u32(16)] = {r.u32(20),
                              r.u16(24),
                              r.u16(26),
                              r.u32(36),
                              isize,
                              offset,
                              dsize,
                              r.bytes[56],
                              packed,
                              position,
                              aligned(uint32_t(r.bytes.size()))};
}

bool erased(std::span<const uint8_t> bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0xFF; });
}

bool unpack_node(const DataNode& node, std::span<uint8_t> out)
{
    switch (node.compressor) {
    case kNone:
    case kCopy:
        if (node.packed.size() != out.size()) return false;
        std::copy(node.packed.begin(), node.packed.end(), out.begin());
        return true;
    case kZero:
        std::fill(out.begin(), out.end(), 0);
        return true;
    case kRtime:
        return inflate_rtime(node.packed, out);
    case kZlib:
        return inflate_zlib(node.packed, out);
    case kLzo:
        return inflate_lzo(node.packed, out);
    default:
        return false;
    }
}

} // namespace

uint32_t crc32(std::span<const uint8_t> bytes)
{
    uint32_t c = 0; // starts at zero and is not inverted, unlike the same polynomial elsewhere
    for (uint8_t b : bytes) c = kCrcTable[(c ^ b) & 0xFF] ^ (c >> 8);
    return c;
}

std::set<uint32_t> hide_bad_blocks(const std::string& image_path, uint32_t erase_size, Bytes& image)
{
    std::set<uint32_t> hidden;
    std::istringstream list(raw::read_text(image_path + ".bad"));
    for (uint64_t block; list >> block;) {
        const uint64_t begin = block * erase_size;
        if (begin >= image.size()) continue;
        const uint64_t end = std::min<uint64_t>(begin + erase_size, image.size());
        std::fill(image.begin() + int64_t(begin), image.begin() + int64_t(end), 0);
        hidden.insert(uint32_t(begin));
    }
    return hidden;
}

Log scan(std::span<const uint8_t> image)
{
    Log log;
    for (size_t at = 0; at + kHeaderSize <= image.size();) {
        const uint32_t length = node_length({image.subspan(at)});
        if (length == 0) {
            at += 4;
            continue;
        }
        const Record node{image.subspan(at, length)};
        if (node.u16(2) == kDirentNode) take_dirent(log, node, uint32_t(at));
        if (node.u16(2) == kInodeNode) take_inode(log, node, uint32_t(at));
        at += aligned(length);
    }
    return log;
}

std::vector<Room> find_room(std::span<const uint8_t> image, uint32_t erase_size)
{
    std::vector<Room> tails, blocks;
    for (uint32_t block = 0; block + erase_size <= image.size(); block += erase_size) {
        const uint32_t end = block + erase_size;
        uint32_t last = end; // one past the last byte that was written
        while (last > block && image[last - 1] == 0xFF) --last;
        // A node may end in bytes 0xFF of its own: walk the nodes to learn where the last one ends.
        uint32_t at = block;
        while (at < end) {
            const uint32_t length = node_length({image.subspan(at, end - at)});
            if (length == 0 && at >= last) break;
            at += length ? aligned(length) : 4;
        }
        if (at >= end || !erased(image.subspan(at, end - at))) continue;
        (at == block ? blocks : tails).push_back({at, end});
    }
    tails.insert(tails.end(), blocks.begin(), blocks.end());
    return tails;
}

std::string contents(const Inode& inode, Bytes& out)
{
    out.clear();
    if (inode.nodes.empty()) return "the data of its nodes are damaged";
    for (const auto& [version, node] : inode.nodes) {
        if (node.dsize == 0) continue;
        if (out.size() < node.offset + node.dsize) out.resize(node.offset + node.dsize);
        if (unpack_node(node, std::span(out).subspan(node.offset, node.dsize))) continue;
        char text[96];
        snprintf(text, sizeof text, "node at 0x%x: cannot unpack %zu bytes of compressor %u", node.position,
                 node.packed.size(), node.compressor);
        return text;
    }
    out.resize(std::min<size_t>(out.size(), inode.newest().isize)); // a lost end is not made up
    return {};
}

} // namespace vcam::jffs2
