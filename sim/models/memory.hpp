// The camera's physical memory, as far as programs and media drivers see it: files that stand for it.
//
// RAM begins at 0x80000000; its upper part belongs to the media drivers, which divide it into pools and
// blocks. What lies below are the chip's registers, in the file that `reg` keeps, by address.
#pragma once

#include "sim/models/page.hpp"

namespace vcam::media {

constexpr uint32_t kRam = 0x80000000, kRamSize = 0x10000000;
constexpr uint32_t kZone = 0x8C000000, kZoneSize = kRam + kRamSize - kZone;
constexpr uint32_t kPageSize = 4096;

// Maps whole pages of physical memory at `address` (null: anywhere) as mmap would. MAP_FAILED with errno;
// ENXIO for an address that the chip does not have.
void* map_physical(void* address, size_t length, int protection, int flags, int64_t physical);
// The same where a 32-bit word can name it.
void* map_low(size_t length, uint32_t physical);
// The media drivers' own view of their zone; null without memory.
uint8_t* zone_at(uint32_t physical);
void forget_zone(); // its file is another from now on

// A free stretch of the zone, from a page's start; 0 when there is none.
uint32_t allocate(const Page& page, uint64_t size);

} // namespace vcam::media
