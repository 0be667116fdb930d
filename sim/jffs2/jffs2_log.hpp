// The JFFS2 log in memory: scanning an image into inodes and names, node by node.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace vcam::jffs2 {

inline constexpr uint16_t kMagic = 0x1985;
inline constexpr uint16_t kDirentNode = 0xE001;
inline constexpr uint16_t kInodeNode = 0xE002;
inline constexpr uint16_t kCleanMarker = 0x2003;
inline constexpr uint32_t kHeaderSize = 12;
inline constexpr uint32_t kDirentSize = 40; // the name follows
inline constexpr uint32_t kInodeSize = 68;  // the data follow
inline constexpr uint32_t kPageSize = 4096; // a data node never crosses a page of its file
inline constexpr uint32_t kRoot = 1;
inline constexpr uint32_t kMaxFile = 256u << 20; // larger than any flash here: a damaged size

enum Compressor : uint8_t { kNone = 0, kZero = 1, kRtime = 2, kCopy = 4, kZlib = 6, kLzo = 7 };

using Bytes = std::vector<uint8_t>;

// One write to an inode, in the order of its version.
struct DataNode {
    uint32_t mode, uid, gid, mtime, isize;
    uint32_t offset, dsize;
    uint8_t compressor;
    std::span<const uint8_t> packed; // in the image
    uint32_t position, size;         // of the node in the image, with what fills its last word
};

// Without nodes: one was there, but its data are damaged. The file has a name and reads as an error.
struct Inode {
    std::map<uint32_t, DataNode> nodes; // by version
    [[nodiscard]] const DataNode& newest() const { return nodes.rbegin()->second; }
    [[nodiscard]] uint32_t version() const { return nodes.empty() ? 0 : nodes.rbegin()->first; }
};

struct Name {
    uint32_t version, ino;           // ino 0: deleted
    uint32_t mtime = 0;              // of the folder
    uint32_t position = 0, size = 0; // of the node in the image
};

// Each name that stands in the image, also those that newer ones replace.
struct WrittenName {
    uint32_t folder;
    std::string name;
    Name entry;
};

struct Log {
    std::map<uint32_t, Inode> inodes;
    std::map<uint32_t, std::map<std::string, Name>> folders; // by inode number, then name
    std::vector<WrittenName> names;                          // in the image's order
    uint32_t highest_ino = kRoot;
};

// Where new nodes can go: [begin, end) is erased and lies within one erase block.
struct Room {
    uint32_t begin, end;
};

constexpr uint32_t aligned(uint32_t n) { return (n + 3) & ~3u; } // nodes begin at whole words
[[nodiscard]] uint32_t crc32(std::span<const uint8_t> bytes);
// Blocks that the list beside the image (its name and ".bad") calls bad hold nothing and take nothing,
// whatever stands in them: fills them with zeros, neither node nor room. Returns where they begin.
std::set<uint32_t> hide_bad_blocks(const std::string& image_path, uint32_t erase_size, Bytes& image);
[[nodiscard]] Log scan(std::span<const uint8_t> image);
// Blocks that are erased as a whole are handed out last, so that a block is filled before the next.
[[nodiscard]] std::vector<Room> find_room(std::span<const uint8_t> image, uint32_t erase_size);
// The file's bytes (or a link's target) after all its nodes. Returns "" or what cannot be unpacked.
std::string contents(const Inode& inode, Bytes& out);

// The decompressors of the log; false when the input is damaged or gives another size.
bool inflate_zlib(std::span<const uint8_t> in, std::span<uint8_t> out);
bool inflate_rtime(std::span<const uint8_t> in, std::span<uint8_t> out);
bool inflate_lzo(std::span<const uint8_t> in, std::span<uint8_t> out);

} // namespace vcam::jffs2
