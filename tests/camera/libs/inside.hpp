// What the tests inside the camera share.
#pragma once

#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using std::string;

inline bool exists(const string& path) { return access(path.c_str(), F_OK) == 0; }

inline mode_t mode_of(const string& path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    return info.st_mode & 07777;
}

// Runs a part of a test in a process of its own, with namespaces of its own, so that what it mounts or kills
// goes with it. Expectations that fail there fail the test.
inline void isolated(int namespaces, auto&& part)
{
    const int status = in_child([&] {
        if (unshare(namespaces) < 0) return 90;
        if (namespaces & CLONE_NEWNS) mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        // The first process after the unshare is number 1 of the new process space.
        return in_child([&] {
            part();
            return testing::Test::HasFailure() ? 1 : 0;
        });
    });
    EXPECT_EQ(status, 0) << "90: unshare, above 128: killed, else a failure above";
}
