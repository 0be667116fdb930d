// The device settings that survive an upgrade.
#pragma once

#include <cstdint>
#include <iterator>

namespace zep {

struct KeptFilePlace {
    const char* saved_by; // the program of the saving line
    const char* path;
    const char* copy;
};

inline constexpr KeptFilePlace kKeptFileTable[] = {
    {"/bin/cp", "/etc/network/network.conf", "/tmp/network.conf"},
    {"cp", "/etc/network/wireless.conf", "/tmp/wireless.conf"},
    {"cp", "/etc/system.conf", "/tmp/system.conf"},
    {"cp", "/etc/serverinfo.conf", "/tmp/serverinfo.conf"},
    {"cp", "/etc/cam_model.conf", "/tmp/cam_model.conf"},
};

struct KeptNumberPlace {
    const char* file; // null: that of the web server
    const char* key;
    int otherwise; // when the file cannot be read
};

inline constexpr KeptNumberPlace kKeptNumberTable[] = {
    {"/etc/tcp_server.conf", "server_port", 1852}, {"/etc/stream.conf", "stream_1_port", 1852},
    {"/etc/stream.conf", "stream_2_port", 1853},   {"/etc/stream.conf", "stream_3_port", 1854},
    {"/etc/videodecoder.conf", "video_type", 0},   {nullptr, nullptr, 80},
};

constexpr int kKeptFiles = std::size(kKeptFileTable);
constexpr int kKeptNumbers = std::size(kKeptNumberTable);

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

// The files themselves are kept as copies in /tmp, the numbers here. In the order of the tables.
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
