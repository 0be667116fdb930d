// The nodes of a JFFS2 log as bytes.
#include "sim/jffs2/jffs2_nodes.hpp"

#include <sys/stat.h>

namespace vcam::jffs2 {
namespace {

void put16(Bytes& b, uint32_t v) { b.insert(b.end(), {uint8_t(v), uint8_t(v >> 8)}); }

void put32(Bytes& b, uint32_t v)
{
    put16(b, v & 0xFFFF);
    put16(b, v >> 16);
}

// Header with its checksum; the node's own fields follow.
Bytes begin_node(uint16_t type, uint32_t length)
{
    Bytes b;
    put16(b, kMagic);
    put16(b, type);
    put32(b, length);
    put32(b, crc32(b));
    return b;
}

} // namespace

Bytes clean_marker() { return begin_node(kCleanMarker, kHeaderSize); }

Bytes padding(uint32_t size)
{
    Bytes b;
    if (size >= kHeaderSize) b = begin_node(kPaddingNode, size);
    b.resize(size, 0);
    return b;
}

Bytes inode_node(uint32_t ino, uint32_t version, const DataNode& head, std::span<const uint8_t> data)
{
    Bytes b = begin_node(kInodeNode, kInodeSize + uint32_t(data.size()));
    for (uint32_t v : {ino, version, head.mode}) put32(b, v);
    put16(b, head.uid);
    put16(b, head.gid);
    for (uint32_t v : {head.isize, head.mtime, head.mtime, head.mtime, head.offset}) put32(b, v);
    put32(b, uint32_t(data.size()));
    put32(b, head.compressor == kZero ? head.dsize : uint32_t(data.size()));
    put32(b, head.compressor); // the compressor asked for and flags are 0
    const uint32_t node_crc = crc32(b);
    put32(b, crc32(data));
    put32(b, node_crc);
    b.insert(b.end(), data.begin(), data.end());
    return b;
}

Bytes name_node(uint32_t parent, const std::string& name, const Name& entry, uint32_t mode)
{
    Bytes b = begin_node(kDirentNode, kDirentSize + uint32_t(name.size()));
    for (uint32_t v : {parent, entry.version, entry.ino, entry.mtime}) put32(b, v);
    const uint8_t type = entry.ino ? uint8_t((mode & S_IFMT) >> 12) : 0; // as readdir reports it
    b.insert(b.end(), {uint8_t(name.size()), type, 0, 0});
    const uint32_t node_crc = crc32(b);
    put32(b, node_crc);
    put32(b, crc32({reinterpret_cast<const uint8_t*>(name.data()), name.size()}));
    b.insert(b.end(), name.begin(), name.end());
    return b;
}

} // namespace vcam::jffs2
