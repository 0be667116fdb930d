// fwpkg: builds, shows, checks and takes apart firmware packages.
#include "tools/fwpkg/commands.hpp"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
};

constexpr Command kCommands[] = {
    {"build", fwpkg::build},
    {"info", fwpkg::info},
    {"check", fwpkg::check},
    {"extract", fwpkg::extract},
};

constexpr char kUsage[] =
    "usage: fwpkg build -o PACKAGE [--version 1|3] [--marker TEXT] [--page-size BYTES] [--force]\n"
    "                   KERNEL ROOTFS SETTINGS\n"
    "       fwpkg info [--json] PACKAGE\n"
    "       fwpkg check [--marker TEXT | --any-marker] [--version N] [--log] PACKAGE\n"
    "       fwpkg extract [-d FOLDER] [--force] PACKAGE\n"
    "\n"
    "build    writes a package: kernel image (mkimage), root file system, JFFS2 image of /etc\n"
    "info     shows header, images and kernel image header\n"
    "check    judges a package as a device does before it erases anything\n"
    "extract  writes the images to flash1.img, flash2.img and flash3.img\n"
    "\n"
    "exit status: 0 good, 1 refused, 2 wrong usage or a file that cannot be read or written\n";

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return fwpkg::kGood;
    }
    for (const Command& command : kCommands) {
        if (argc < 2 || strcmp(argv[1], command.name) != 0) continue;
        try {
            return command.run(argc - 1, argv + 1);
        } catch (const std::exception& problem) {
            fprintf(stderr, "fwpkg: %s\n", problem.what());
            return fwpkg::kTrouble;
        }
    }
    fputs(kUsage, stderr);
    return fwpkg::kTrouble;
}
