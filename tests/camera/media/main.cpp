// Tests of the media platform that run inside the camera: they talk to its drivers.
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    if (!getenv("VCAM_STATE")) {
        fputs("this program runs inside the virtual camera only\n", stderr);
        return 2;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
