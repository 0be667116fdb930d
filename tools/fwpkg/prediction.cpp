// Erases, writes and time of an upgrade, and the settings that it keeps.
#include "tools/fwpkg/prediction.hpp"

#include "tools/fwpkg/describe.hpp"
#include "upgrade/settings.hpp"

#include <cmath>
#include <cstdio>
#include <vector>

namespace fwpkg {

namespace {

// Typical of data sheets, in bytes a second. NOR: 64 KiB erased in 0.5 s, 16 bytes programmed in 50 us. NAND with small
// pages: 16 KiB erased in 2 ms, 512 bytes programmed in 250 us.
struct Speed {
    double erase, program;
};
constexpr Speed kNor = {128 << 10, 320000}, kNand = {8 << 20, 2048000};

struct Upgrade {
    int64_t blocks = 0; // -1 when an erase block's size is not known
    int64_t erased = 0, written = 0;
    double seconds = 0;
};

// The device erases whole partitions, however short the images are.
Upgrade upgrade_of(const zep::PackageHeader& header, const Partitions& partitions)
{
    Upgrade all;
    for (unsigned i = 0; i < partitions.size(); ++i) {
        const Flash& flash = partitions[i];
        const Speed& speed = flash.nand ? kNand : kNor;
        if (all.blocks >= 0) all.blocks = flash.erase_size ? all.blocks + flash.size / flash.erase_size : -1;
        all.erased += flash.size;
        all.written += header.size[i];
        all.seconds += double(flash.size) / speed.erase + double(header.size[i]) / speed.program;
    }
    return all;
}

std::vector<std::string> kept_settings()
{
    std::vector<std::string> kept;
    for (const auto& file : zep::kKeptFileTable) kept.emplace_back(file.path);
    for (const auto& number : zep::kKeptNumberTable)
        kept.push_back(number.file ? std::string(number.key) + " of " + number.file
                                   : "the web server's port");
    return kept;
}

} // namespace

void print_prediction(const char* name, const zep::PackageHeader& header, const Partitions& partitions)
{
    for (unsigned i = 0; i < partitions.size(); ++i)
        printf("%s: %s: %u of %lld bytes of /dev/mtd%u\n", name, kImages[i], header.size[i],
               static_cast<long long>(partitions[i].size), i + 1);
    const Upgrade upgrade = upgrade_of(header, partitions);
    const std::string blocks =
        upgrade.blocks < 0 ? "" : " in " + std::to_string(upgrade.blocks) + " erase blocks";
    printf("%s: an upgrade erases %lld bytes%s, writes %lld bytes: some %.0f s of flash\n", name,
           static_cast<long long>(upgrade.erased), blocks.c_str(), static_cast<long long>(upgrade.written),
           std::ceil(upgrade.seconds));
    std::string kept;
    for (const auto& setting : kept_settings()) kept += (kept.empty() ? "" : ", ") + setting;
    printf("%s: settings that an upgrade without -f keeps: %s\n", name, kept.c_str());
}

cli::Json prediction_json(const zep::PackageHeader& header, const Partitions& partitions)
{
    const Upgrade upgrade = upgrade_of(header, partitions);
    return {{"erase_blocks", upgrade.blocks < 0 ? cli::Json() : cli::Json(upgrade.blocks)},
            {"erased_bytes", upgrade.erased},
            {"written_bytes", upgrade.written},
            {"seconds", std::ceil(upgrade.seconds)},
            {"kept_settings", kept_settings()}};
}

} // namespace fwpkg
