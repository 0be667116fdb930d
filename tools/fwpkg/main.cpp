// fwpkg: builds, shows, checks and takes apart firmware packages.
#include "tools/fwpkg/commands.hpp"

int main(int argc, char** argv)
{
    using namespace fwpkg;
    const cli::Tool tool = {
        "fwpkg",
        "Builds, shows, checks and takes apart the firmware packages of a camera.",
        "0 good, 1 refused, 2 wrong use or a file that cannot be read or written.",
        {{"build", "write a package: kernel image (mkimage), root file system, JFFS2 image of /etc", build,
          kTrouble},
         {"info", "show header, images and kernel image header", info, kTrouble},
         {"check", "judge a package as a device does before it erases anything", check, kTrouble},
         {"extract", "write a package's images to flash1.img, flash2.img and flash3.img", extract, kTrouble}},
    };
    return cli::run(tool, argc, argv);
}
