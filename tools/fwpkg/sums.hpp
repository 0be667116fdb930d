// Checksums of a stretch of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace fwpkg {

struct Sums {
    uint32_t crc32 = 0;
    std::string sha256; // 64 hexadecimal digits
};

// Nothing when the file ends before the stretch does, or cannot be read. The file's position stays.
std::optional<Sums> sums_of(int fd, int64_t offset, int64_t size);

} // namespace fwpkg
