// The list of ways out of a camera, tried by root of one and by anybody.
#pragma once

#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

inline void expect_no_way_out(Camera& camera, const std::string& program)
{
    const std::string outside = (camera.folder() / "outside").string();
    write_file(outside, "the host's");
    // With the preload library and without it: neither may matter.
    for (const char* preload : {"--no-mark", "--no-preload"}) {
        const Outcome run = camera.run({"/run/bin/ways_out", std::to_string(getpid()), outside},
                                       {"--bind", program, preload});
        EXPECT_THAT(run.out, testing::MatchesRegex("[0-9]+ tried, 0 open\n")) << preload << run.err;
        EXPECT_EQ(run.status, 0) << preload;
    }
}
