// Tests of library functions that use fixed paths, ports and process numbers. They run inside the camera:
// they write to /etc, mount and signal. With a word instead of a test option the program does one thing,
// which ends the camera or shows what a fresh process does.
#include "common/accounts.h"
#include "service/cutil_reboot.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    if (!getenv("VCAM_STATE")) {
        fputs("this program runs inside the virtual camera only\n", stderr);
        return 2;
    }
    if (argc == 2 && strcmp(argv[1], "reboot") == 0) {
        printf("before the reboot"); // no line end: only a flush brings it out
        CUTIL_Reboot();
    }
    if (argc == 2 && strcmp(argv[1], "reboot_net") == 0) CUTIL_RebootNet();
    if (argc == 2 && strcmp(argv[1], "set_password") == 0) return QRN_SetSystemPassword("guest", "pw");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
