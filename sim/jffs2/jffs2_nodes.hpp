// The nodes of a JFFS2 log as bytes, each with its checksums.
#pragma once

#include "sim/jffs2/jffs2_log.hpp"

namespace vcam::jffs2 {

inline constexpr uint16_t kPaddingNode = 0x2004;

// Marks an erased block as usable, on flash without a place for it outside the data.
Bytes clean_marker();
// Fills `size` bytes up to the end of a page; too short for a header they are zeros.
Bytes padding(uint32_t size);
// One write to an inode: `head` gives everything but the data, whose length is head.dsize unless it is a hole.
Bytes inode_node(uint32_t ino, uint32_t version, const DataNode& head, std::span<const uint8_t> data);
// A name in the folder `parent`; entry.ino 0 deletes it. `mode` says the kind of file.
Bytes name_node(uint32_t parent, const std::string& name, const Name& entry, uint32_t mode);

} // namespace vcam::jffs2
