// What a new camera leaves the factory with: settings, boot environment, programs.
#pragma once

#include <string>
#include <vector>

namespace vcam {

struct FactoryOptions {
    std::string model = "ZM131";
    std::string mac = "02:1A:2B:00:00:01";
    std::string serial = "QN12090001";
    std::string product = "NVS-131-EU";
    std::string address = "192.168.10.20";
    std::string marker = "3510";
    int version = 1;       // package layout that this firmware expects
    bool lighttpd = false; // which web server the firmware carries: webs or lighttpd
};

struct FactoryFile {
    std::string path; // absolute, in the camera
    std::string content;
    unsigned mode = 0644;
};

// The files of /etc, in the order of their making.
std::vector<FactoryFile> factory_settings(const FactoryOptions& options);
// Files outside /etc: the firmware's own description, driver modules.
std::vector<FactoryFile> factory_files(const FactoryOptions& options);
// Programs of the firmware that exist as daemons with nothing to do.
std::vector<std::string> factory_daemons(const FactoryOptions& options);
// The boot loader's partition, of kBootBytes or more: code, and at 0x40000 its environment.
constexpr size_t kBootBytes = 0x50000;
std::string factory_boot(const FactoryOptions& options, size_t size);
// Bytes that stand for a firmware image, the rest of the partition erased.
std::string factory_image(size_t filled, size_t size, unsigned seed);

} // namespace vcam
