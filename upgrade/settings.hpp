// The device settings that survive an upgrade.
#pragma once

#include <cstdint>

namespace zep {

constexpr int kKeptFiles = 5;
constexpr int kKeptNumbers = 6;

// Size and CRC-32 of a file that could be read whole; no size: it could not, or was empty.
struct FileMark {
    uint32_t size = 0;
    uint32_t crc = 0;

    bool operator==(const FileMark&) const = default;
};

struct KeptFile {
    FileMark user;
    int error; // why there is no mark
};

struct KeptNumber {
    int value;
    int error; // why `value` is the built-in default; 0 when it was read
};

// The files themselves are kept as copies in /tmp, the numbers here. In the order of the source's tables.
struct KeptSettings {
    KeptFile file[kKeptFiles];
    KeptNumber number[kKeptNumbers];
    const char* web_file; // of the web server that the device had when they were read
    const char* web_key;
};

void save_settings(KeptSettings& kept);

// Puts the settings back. Afterwards each kept file is the user's or else the package's own. What was
// not kept is logged with its reason.
void restore_settings(const KeptSettings& kept);

} // namespace zep
