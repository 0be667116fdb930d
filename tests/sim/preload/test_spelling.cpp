// Whatever names the C library's headers choose for a call, it must reach the simulated drivers.
#include "tests/sim/preload/camera.hpp"

using namespace vcam;

extern "C" {
int spelling_plain(void);
int spelling_large_files(void);
int spelling_long_time(void);
int spelling_checked(void);
int spelling_checked_large_files(void);
}

namespace {

class Spelling : public test::CameraTest {};

TEST_F(Spelling, EveryNameOfACallIsBound)
{
    EXPECT_EQ(spelling_plain(), 0);
    EXPECT_EQ(spelling_large_files(), 0);
    EXPECT_EQ(spelling_long_time(), 0);
    EXPECT_EQ(spelling_checked(), 0);
    EXPECT_EQ(spelling_checked_large_files(), 0);
}

} // namespace
