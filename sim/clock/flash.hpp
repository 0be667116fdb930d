// The one function that changes a partition's image, and the record of these changes.
//
// Drivers and file systems change flash through change(). Where the camera's folder holds a file `record`, each change is
// appended to it before the image is touched: an entry's head, then its data. A reader stops at an incomplete last entry,
// which a killed process leaves. Numbers are the PC's own, little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vcam::flash {

enum class Kind : uint8_t {
    write = 1,    // the data are what the bytes hold afterwards; on a chip only bits that this clears change
    erase = 2,    // to 0xFF, within one erase block; no data
    mark_bad = 3, // the block at the offset; no data
    replace = 4, // a write of the block device: the kernel erases and writes the erase blocks that it touches
};

struct Entry {
    char magic[4];      //  0  kMagic
    uint32_t data_size; //  4  bytes that follow the head
    int64_t time_ns;    //  8  camera time
    int32_t pid;        // 16  in the camera
    uint8_t kind;       // 20  Kind
    uint8_t partition;  // 21  number
    uint16_t pad;       // 22  0
    uint32_t offset;    // 24  in the partition, bytes
    uint32_t size;      // 28  of the stretch that changes, bytes
    char process[16];   // 32  name, ends in 0
};
static_assert(sizeof(Entry) == 48 && offsetof(Entry, offset) == 24 && offsetof(Entry, process) == 32);
inline constexpr char kMagic[4] = {'V', 'F', 'O', '1'};

// Records a change of the image `.../flash/mtdN` and makes it: `data` for write and replace, `size` bytes of 0xFF for
// erase; mark_bad adds the block to `mtdN.bad`. `fd` is an open descriptor of the image, writable; the caller holds
// whatever lock keeps others off these bytes. An image elsewhere is changed and not recorded. False with errno.
bool write(int fd, const std::string& image, uint32_t offset, std::span<const uint8_t> data);
bool replace(int fd, const std::string& image, uint32_t offset, std::span<const uint8_t> data);
bool erase(int fd, const std::string& image, uint32_t offset, uint32_t size);
bool mark_bad(const std::string& image, uint32_t offset, uint32_t erase_size);

} // namespace vcam::flash
