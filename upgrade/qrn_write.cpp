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
#include <sys/stat.h>
#include <unistd.h>

namespace zep {
namespace {

constexpr char kName[] = "CFlash_QRNWrite"; // in front of the core's messages
constexpr char kSettings[] = "/etc";
constexpr int kAttempts = 3;

bool on_settings_partition(int fd)
{
    struct stat file, settings;
    return fstat(fd, &file) == 0 && stat(kSettings, &settings) == 0 && file.st_dev == settings.st_dev;
}

// Whatever this process holds on the partition would have it killed with the others that do,
// and the device left halfway.
void let_go_of_settings(Package& package)
{
    [[maybe_unused]] int status = chdir("/");
    if (on_settings_partition(package.fd.get())) package.fd.reset();
}

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

// The stage that failed, null when the device holds the image.
const char* failed_stage(const Stretch& image, const char* device)
{
    if (CFlash_Erase(device) < 0) return "erase";
    if (write_stretch(image, device) < 0) return "write";
    if (confirm_stretch(image, device) < 0) return "cmp";
    return nullptr;
}

// After the last attempt the device goes on with the next partition: what can be written shall be.
void write_partition(const Stretch& image, const char* device)
{
    log_alert("[%s] write [%s]\n", kName, device);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const char* stage = failed_stage(image, device);
        if (!stage) return;
        log_alert("[%s] %s %s fail[%d]\n", kName, device, stage, attempt);
    }
}

void write_partitions(const char* path, const Package& package, const char* const (&devices)[3], bool verbose)
{
    pin_program();
    for (unsigned i = 0; i < 3; ++i) {
        write_partition({path, package.fd.get(), package.header.offset(i), package.header.size[i]},
                        devices[i]);
        if (!verbose) continue;
        printf("%s : flash%u complete\n", kName, i + 1);
        fflush(stdout);
    }
}

} // namespace
// What now stands at the path is measured anew: another file may have been underneath the mount.
void reopen(const char* path, Package& package)
{
    package.fd.reset(open_package(path));
    struct stat info;
    if (package.fd && fstat(package.fd.get(), &info) == 0) package.file_size = info.st_size;
}

} // namespace zep

int CFlash_QRNWrite(const char* path, const char* dev1, const char* dev2, const char* dev3, int flags)
{
    using namespace zep;
    Package package;
    if (!read_package(path, flags & CFLASH_CHECK_MARKER, package)) return -1;

    bool keep = !(flags & CFLASH_FACTORY);
    KeptSettings kept;
    if (keep) save_settings(kept);

    let_go_of_settings(package);
    if (!unmount_settings()) return -1;
    if (!package.fd) reopen(path, package);
    if (!check_images(package)) return -1;

    write_partitions(path, package, {dev1, dev2, dev3}, flags & CFLASH_VERBOSE);
    run_shell("/bin/mount -t jffs2 /dev/mtdblock3 /etc");
    if (keep) restore_settings(kept);
    return 0;
}
