// The CRC-32 of IEEE 802.3: reflected polynomial 0xEDB88320, preset to all ones, result inverted.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zep {

// Carries a CRC on over size bytes. Start with 0; the value after each piece is the CRC of all
// the bytes so far, so a stream can be fed in pieces of any size.
uint32_t crc32_update(uint32_t crc, const void* data, size_t size);

} // namespace zep
