// One erase block, opened: its bytes and what they belong to.
#pragma once

#include "sim/base/camera.hpp"
#include "tools/cli/json.hpp"

namespace vcam::web {

// {offset, crc32, belongs, nodes: [{offset, text}], piece, bytes}: `bytes` are 4 KiB of the block as hexadecimal digits,
// `piece` which of them. Throws for a block that is not there.
cli::Json block_json(const Camera& camera, const std::string& partition, uint64_t block, uint64_t piece);

} // namespace vcam::web
