// The camera's state folder: where it is, and what camera.conf says about the hardware.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vcam::state {

// The folder in use: VCAM_STATE of the environment, or what set_dir gave. Empty: no camera.
const std::string& dir();
void set_dir(const std::string& path);
std::string path(const std::string& name);

// Value of `key` in camera.conf, or `fallback`.
std::string setting(const std::string& key, const std::string& fallback = {});

// One flash partition, from its line `mtdN=type,size,erasesize,writesize`. Sizes are in bytes: decimal,
// 0x hexadecimal, or with K or M for 2^10 or 2^20.
struct Partition {
    uint32_t number = 0;
    bool nand = false;
    uint32_t size = 0, erase_size = 0, write_size = 1;
    std::vector<uint32_t> bad_blocks; // from flash/mtdN.bad
    [[nodiscard]] std::string image() const { return path("flash/mtd" + std::to_string(number)); }
};
// Size 0 when the camera has no such partition.
Partition partition(uint32_t number);
// Makes the image as large as the partition, the missing end erased. False with errno.
bool complete_image(const Partition& partition);

// A size of less than 4 GiB; false when the text is anything else.
bool parse_size(const std::string& text, uint32_t& value);

} // namespace vcam::state
