// The layout of a firmware package and what its checks find.
#pragma once

#include "common/base/fd.hpp"

#include <array>
#include <cstdint>
#include <span>

namespace zep {

// Package file, integers little-endian:
//   0  marker    four ASCII characters
//   4  version   1 or 3
//   8  sizes     version 1: three sizes (header 20 bytes);
//                version 3: an unused word, three sizes, 40 reserved bytes (header 64 bytes)
// Then the three images back to back; nothing follows them.
constexpr uint32_t kPrefixBytes = 8;

struct PackageHeader {
    uint32_t marker = 0;
    int32_t version = 0;
    uint32_t length = 0;            // bytes of the header: where the first image starts
    std::array<uint32_t, 3> size{}; // of flash1, flash2, flash3

    // Sizes are summed in 64 bits: in 32 they can wrap and agree with a short file.
    [[nodiscard]] constexpr int64_t offset(unsigned image) const
    {
        int64_t at = length;
        for (unsigned i = 0; i < image; ++i) at += size[i];
        return at;
    }
    [[nodiscard]] constexpr int64_t total() const { return offset(3); }
};

// Length of a version's header, 0 for a version that is not known.
constexpr uint32_t header_length(int32_t version) { return version == 1 ? 20 : version == 3 ? 64 : 0; }

// Where the size of flash1 stands; the other two follow.
constexpr uint32_t sizes_offset(int32_t version) { return version == 1 ? 8 : 12; }

// Kernel image header, integers big-endian, in front of the kernel's data:
//   0 magic, 4 header CRC (over the 64 bytes with this field 0), 8 time, 12 data size, 16 load
//   address, 20 entry point, 24 data CRC, 28 operating system, 29 architecture, 30 type,
//   31 compression, 32 name (32 bytes)
constexpr uint32_t kImageHeaderBytes = 64;
constexpr uint32_t kImageMagic = 0x27051956;
constexpr uint8_t kArchitectureArm = 2;

struct ImageHeader {
    uint32_t magic, header_crc, data_size, data_crc;
    uint8_t architecture, type, compression;
};

ImageHeader decode_image_header(std::span<const uint8_t, kImageHeaderBytes> bytes);

// CRC-32 of a kernel image header with its CRC field taken as zero.
uint32_t image_header_crc(std::span<const uint8_t, kImageHeaderBytes> bytes);

constexpr uint32_t kJffs2EraseBlock = 65536;
constexpr uint32_t kJffs2NodeBytes = 12;
constexpr uint32_t kJffs2Magic = 0x1985; // stored as 85 19

// What the device expects of a package.
struct Expected {
    uint32_t marker = 0;
    int32_t version = 0;
    char model[16] = {}; // the device's model number; no check compares it
};

// Reads /etc/oem_marker.conf and /usr/upgrade. A file that lacks a key gives what the key=value
// getter makes of that: the value of its last key.
Expected read_expected();

// The four characters of a marker as the package holds them; a shorter text is padded with zeros.
uint32_t marker_word(const char* text);

enum class Flaw : uint8_t {
    none,
    header, // the package ends inside its header
    marker,
    version,
    layout,       // a version whose header is not known
    sizes,        // header and sizes are not the length of the file
    image_header, // no whole kernel image header
    image_magic,
    header_crc,
    data_short, // the file ends inside the kernel's data; logged as a wrong CRC
    data_crc,
    architecture,
    image_type,
    compression,
    jffs2,
};

// The outcome of a check: the first flaw, where it stands in the file, and what was found there
// in place of what.
struct Finding {
    Flaw flaw = Flaw::none;
    int64_t offset = 0;
    int64_t found = 0;
    int64_t expected = 0;

    explicit operator bool() const { return flaw != Flaw::none; }
};

// The checks, in the order in which an upgrade makes them. Each logs what the device's log is
// to hold and moves the position of fd.
Finding check_header(int fd, const Expected& device, bool compare_marker, PackageHeader& header);
Finding check_sizes(const PackageHeader& header, int64_t file_size);
Finding check_image(int fd, int64_t offset);
Finding check_jffs2(int fd, int64_t offset);
Finding check_contents(int fd, const PackageHeader& header); // kernel image, then JFFS2

// Opens a package for reading; -1 when it cannot be. Never waits on a FIFO or terminal in its place.
int open_package(const char* path);

struct Package {
    Fd fd;
    PackageHeader header;
    int64_t file_size = 0;
};

// Opens a package, checks its header against this device and measures the file. After false,
// `unreadable` says why the header could not be had; null when the checks have logged the flaw.
bool read_package(const char* path, bool compare_marker, Package& package, const char*& unreadable);

} // namespace zep
