// get_boot_param over a full environment that holds none of its keys, beside strings and grep over the same
// bytes. In a mount space of its own, where /dev/mtd0 is a file.
#include "bench/common/measure.hpp"
#include "board/bootenv.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>

namespace {

constexpr size_t kOffset = 0x40000, kSize = 0x40000;

void need(bool done, const char* what)
{
    if (done) return;
    fprintf(stderr, "bench_boot_param: %s: %s\n", what, strerror(errno));
    exit(1);
}

// Variables of 20 to 80 characters up to the last byte, none of them a key.
std::string environment()
{
    std::string text;
    for (unsigned i = 0; text.size() < kSize; ++i) {
        text += "variable_" + std::to_string(i) + "=";
        for (unsigned k = 0; k < 10 + i * 7 % 60; ++k) text += char('a' + (i * 31 + k * 17) % 26);
        text += '\0';
    }
    text.resize(kSize);
    return text;
}

void write_file(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// A /dev with the boot partition and the null device in it.
void replace_dev(const std::string& folder, const std::string& bytes)
{
    need(unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) == 0, "unshare");
    need(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    need(mount("dev", folder.c_str(), "tmpfs", 0, nullptr) == 0, "tmpfs");
    write_file(folder + "/null", "");
    need(mount("/dev/null", (folder + "/null").c_str(), nullptr, MS_BIND, nullptr) == 0, "/dev/null");
    write_file(folder + "/mtd0", std::string(kOffset, '\xFF') + bytes);
    write_file(folder + "/environment", bytes);
    need(mount(folder.c_str(), "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0, "/dev");
}

void search_three()
{
    char value[512];
    if (BOOTENV_GetValue("ethaddr=", 17, value, sizeof value) == 0 ||
        BOOTENV_GetValue("serial_no=", 10, value, sizeof value) == 0 ||
        BOOTENV_GetValue("product_code=", 512, value, sizeof value) == 0)
        exit(1);
}

} // namespace

int main()
{
    char folder[] = "/tmp/bench-boot.XXXXXX";
    need(mkdtemp(folder) != nullptr, "temporary folder");
    replace_dev(folder, environment());
    constexpr int kRounds = 200;
    puts("three boot variables, none in 256 KiB, best of 200");
    const double searches = best_ms(kRounds, search_three);
    const double applet = best_ms(kRounds, [] { run({"get_boot_param", "/dev/parameters"}, ZEP_PROGRAM); });
    const double tools = best_ms(kRounds, [] {
        run({"sh", "-c", "strings /dev/environment | grep -E '^(ethaddr|serial_no|product_code)='"});
    });
    row("get_boot_param, with the three lines that its shell writes", applet);
    row("of these the three searches", searches);
    row("strings | grep", tools);
    printf("  ratio, get_boot_param to strings and grep %.2f, its searches %.2f\n", applet / tools,
           searches / tools);
    umount2("/dev", MNT_DETACH);
    umount2(folder, MNT_DETACH);
    std::filesystem::remove(folder);
}
