// Erases whole flash partitions.
#include "upgrade/cflash.h"

#include "common/base/fd.hpp"
#include "upgrade/log.hpp"
#include "upgrade/mtd_uapi.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

namespace zep {
namespace {

// Erase blocks of 0 bytes would never reach the end of the partition.
bool measure(int fd, mtd_info_user& info)
{
    info = {};
    return ioctl(fd, MEMGETINFO, &info) == 0 && (info.erasesize != 0 || info.size == 0);
}

int erase_block(int fd, uint32_t start, uint32_t length)
{
    erase_info_user block = {start, length};
    return ioctl(fd, MEMERASE, &block);
}

// The NAND variant's messages: the same text to the log and to standard output.
[[gnu::format(printf, 1, 2)]] void log_and_show(const char* format, ...)
{
    int saved = errno;
    char text[PATH_MAX + 256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    log_alert("%s", text);
    fputs(text, stdout);
    errno = saved;
}

[[noreturn]] void end_process()
{
    fflush(stdout);
    exit(1);
}

constexpr char kNandErase[] = "CFlash_Nand_Erase";

// The bad-block question for one device.
struct BadBlocks {
    const char* device;
    int fd;
    bool nand;
    bool asking = true;

    // True for a bad block. A device that cannot answer is asked once only, unless it is NAND.
    bool skip(uint64_t start);
};

bool BadBlocks::skip(uint64_t start)
{
    if (!asking) return false;
    __kernel_loff_t offset = __kernel_loff_t(start);
    int answer = ioctl(fd, MEMGETBADBLOCK, &offset);
    if (answer > 0) {
        log_and_show("\nSkipping bad block at 0x%08x\n", unsigned(start));
        return true;
    }
    if (answer == 0) return false;
    if (errno != EOPNOTSUPP) {
        log_and_show("\n%s: %s: MTD get bad block failed: %s\n", kNandErase, device, strerror(errno));
        end_process();
    }
    if (nand) {
        log_and_show("%s: %s: Bad block check not available\n", kNandErase, device);
        end_process();
    }
    asking = false;
    return false;
}

void nand_erase_blocks(const char* device, int fd, const mtd_info_user& info)
{
    BadBlocks bad{device, fd, info.type == MTD_NANDFLASH};
    for (uint64_t start = 0; start < info.size; start += info.erasesize) {
        if (bad.skip(start)) continue;
        log_and_show("\rErasing %d Kibyte @ %x -- %2llu %% complete.", int(info.erasesize >> 10),
                     unsigned(start), static_cast<unsigned long long>(start * 100 / info.size));
        fflush(stdout);
        if (erase_block(fd, uint32_t(start), info.erasesize) < 0)
            log_and_show("\n%s: %s: MTD Erase failure: %s\n", kNandErase, device, strerror(errno));
    }
}

} // namespace
} // namespace zep

int CFlash_Erase(const char* device)
{
    using namespace zep;
    log_alert("[CFlash_Erase] =================> [%s]\n", device);
    Fd fd(open(device, O_RDWR | O_CLOEXEC));
    if (!fd) {
        fprintf(stderr, "%s: %s\n", device, strerror(errno));
        log_alert("    [CFlash_Erase] open [%s]\n", device);
        return -1;
    }
    mtd_info_user info;
    if (!measure(fd.get(), info)) {
        fprintf(stderr, "%s: unable to get MTD device info\n", device);
        log_alert("    [CFlash_Erase] unable to get MTD device info [%s]\n", device);
        return -1;
    }
    int refused = 0;
    for (uint64_t start = 0; start < info.size; start += info.erasesize) {
        fflush(stdout);
        if (erase_block(fd.get(), uint32_t(start), info.erasesize) == 0) continue;
        refused = errno;
        fprintf(stderr, "\n%s: MTD Erase failure: %s\n", device, strerror(refused));
        log_alert("    [CFlash_Erase] MTD Erase failure [%s]\n", device);
    }
    errno = refused;
    return 0;
}

int CFlash_Nand_Erase(const char* device)
{
    using namespace zep;
    log_and_show("[CFlash_Nand_Erase] =================> [%s]\n", device);
    Fd fd(open(device, O_RDWR | O_CLOEXEC));
    if (!fd) {
        log_and_show("%s: %s\n", device, strerror(errno));
        return -1;
    }
    mtd_info_user info;
    if (!measure(fd.get(), info)) {
        log_and_show("%s: unable to get MTD device info\n", device);
        return -1;
    }
    nand_erase_blocks(device, fd.get(), info);
    log_and_show("\n");
    return 0;
}
