// The camera's physical memory, as far as programs and media drivers see it: files that stand for it.
//
// RAM begins at 0x80000000; its upper part belongs to the media drivers, which divide it into pools and
// blocks. What lies below are the chip's registers, in the file that `reg` keeps, by address. Where camera.conf
// has memory=/dev/mem, both are memory of the machine at these very addresses.
#pragma once

#include "sim/models/page.hpp"

namespace vcam::media {

constexpr uint32_t kRam = 0x80000000, kRamSize = 0x10000000;
constexpr uint32_t kZone = 0x8C000000, kZoneSize = kRam + kRamSize - kZone;
constexpr uint32_t kPageSize = 4096;

// Maps whole pages of physical memory at `address` (null: anywhere) as mmap would. MAP_FAILED with errno;
// ENXIO for an address that the chip does not have.
void* map_physical(void* address, size_t length, int protection, int flags, int64_t physical);

// Where the process that asks a driver sees physical memory which the driver has mapped into it.
class Views {
public:
    // Whole pages from the start of one; their address, the same as long as they stay mapped. 0: no memory.
    virtual uint32_t map(uint32_t physical, uint32_t size) = 0;
    virtual bool unmap(uint32_t physical, uint32_t size) = 0; // false: not mapped there
    virtual bool mapped(uint32_t physical) = 0;

protected:
    ~Views() = default;
};
Views& views();               // into this process, unless a server has its own
void use_views(Views& views); // before the first request; kept by reference

// The media drivers' own view of their zone; null without memory.
uint8_t* zone_at(uint32_t physical);
void forget_zone(); // its file is another from now on

// A free stretch of the zone, from a page's start; 0 when there is none.
uint32_t allocate(const Page& page, uint64_t size);

} // namespace vcam::media
