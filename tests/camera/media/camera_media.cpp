// The media platform in the camera, each group of tests on a camera of its own.
#include "tests/camera/camera.hpp"

namespace {

const std::string kInside = "/run/bin/inside_media";

struct Media : testing::TestWithParam<const char*> {
    Camera camera;
};

} // namespace

TEST_P(Media, Inside)
{
    const std::string filter = std::string("--gtest_filter=") + GetParam() + ".*";
    const Outcome run = camera.run({kInside, filter}, {"--bind", INSIDE_MEDIA});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run.out.find("[  PASSED  ] 0 tests"), std::string::npos) << filter << " names no test";
}

INSTANTIATE_TEST_SUITE_P(All, Media,
                         testing::Values("Capture", "Playback", "Time", "Stages", "Paths", "Requests",
                                         "BadInput", "Hostile"));
