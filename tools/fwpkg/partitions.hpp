// The sizes of a camera's flash partitions.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace fwpkg {

struct Flash {
    int64_t size = 0;
    int64_t erase_size = 0; // 0 when not known
    bool nand = false;
};
using Partitions = std::array<Flash, 3>;

/**
 * /dev/mtd1 to /dev/mtd3 as a virtual camera's folder or a text file says: lines "mtd1=3M", or
 * "mtd1=TYPE,SIZE,ERASE_SIZE,WRITE_SIZE" as in camera.conf. Throws std::runtime_error, which names
 * the file.
 */
Partitions read_partitions(const std::string& path);

} // namespace fwpkg
