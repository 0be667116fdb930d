// The upgrade core: from a checked package to written flash and restored settings.
#include "upgrade/cflash.h"

#include "common/base/shell.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"
#include "upgrade/settings.hpp"
#include "upgrade/upgrade_process.hpp"
#include "upgrade/write_confirm.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

namespace zep {
namespace {

constexpr char kName[] = "CFlash_QRNWrite"; // in front of the core's messages
constexpr char kSettings[] = "/etc";        // where the settings partition is mounted
constexpr int kAttempts = 3;

bool unmount_settings()
{
    for (int round = 0; round < 10; ++round) {
        run_shell("fuser -m /etc/ | awk '{print $1}' | xargs kill -9");
        usleep(100000);
    }
    if (umount(kSettings) == 0) return true;
    int error = errno;
    printf("[ERROR] %s : umount [%s], errno : %d, %s\n", kSettings, kName, error, strerror(error));
    return false;
}

bool check_images(const Package& package)
{
    const PackageHeader& header = package.header;
    if (check_sizes(header, package.file_size)) {
        printf("[ERROR] %s : Firmware image size : %d vs %d\n", kName, int(header.total()),
               int(package.file_size));
        return false;
    }
    Finding finding = check_contents(package.fd.get(), header);
    if (!finding) return true;
    bool settings = finding.flaw == Flaw::jffs2;
    printf(settings ? "[ERROR] %s : check JFFS2\n" : "[ERROR] %s : chech Image\n", kName);
    return false;
}

// One attempt at a partition.
struct Attempt {
    const char* failed_stage; // null: the device holds the image
    int error;                // of that stage, or of a block that was not erased beside it
};

Attempt attempt_partition(const FileRange& image, const char* device)
{
    if (CFlash_Erase(device) < 0) return {"erase", errno};
    int not_erased = errno;
    if (write_range(image, device) < 0) return {"write", errno};
    if (confirm_range(image, device) < 0) return {"cmp", errno};
    return {nullptr, not_erased};
}

// A partition that failed its last attempt does not keep the others from being written.
void write_partition(const FileRange& image, const char* device)
{
    log_alert("[%s] write [%s]\n", kName, device);
    Attempt last = {};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        last = attempt_partition(image, device);
        if (!last.failed_stage) break;
        log_alert("[%s] %s %s fail[%d]\n", kName, device, last.failed_stage, attempt);
    }
    if (last.failed_stage)
        log_and_print("upgrade: %s does not hold its image of %u bytes (%s: %s)", device, image.size,
                      last.failed_stage, strerror(last.error));
    else if (last.error)
        log_and_print("upgrade: %s holds its image, and old data that could not be erased (%s)", device,
                      strerror(last.error));
}

void write_partitions(const char* path, const Package& package, const char* const (&devices)[3], bool verbose)
{
    lock_program_in_memory();
    for (unsigned i = 0; i < 3; ++i) {
        write_partition({path, package.fd.get(), package.header.offset(i), package.header.size[i]},
                        devices[i]);
        if (!verbose) continue;
        printf("%s : flash%u complete\n", kName, i + 1);
        fflush(stdout);
    }
}

} // namespace
} // namespace zep

int CFlash_QRNWrite(const char* path, const char* dev1, const char* dev2, const char* dev3, int flags)
{
    using namespace zep;
    Package package;
    const char* unreadable;
    if (!read_package(path, flags & CFLASH_CHECK_MARKER, package, unreadable)) {
        if (unreadable) log_and_print("upgrade: %s cannot be used: %s", path, unreadable);
        return -1;
    }

    bool keep = !(flags & CFLASH_FACTORY);
    KeptSettings kept;
    if (keep) save_settings(kept);

    // A package on /etc goes with it: its checks fail.
    if (on_settings_partition(package.fd.get())) package.fd.reset();
    if (!unmount_settings()) return -1;
    if (!check_images(package)) return -1;

    write_partitions(path, package, {dev1, dev2, dev3}, flags & CFLASH_VERBOSE);
    run_shell("/bin/mount -t jffs2 /dev/mtdblock3 /etc");
    if (keep) restore_settings(kept);
    return 0;
}
