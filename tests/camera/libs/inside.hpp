// What the tests inside the camera share.
#pragma once

#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using std::string;

inline bool exists(const string& path) { return access(path.c_str(), F_OK) == 0; }

inline string printed(auto&& action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

// Runs a part of a test in a process of its own, with namespaces of its own, so that what it mounts or kills
// goes with it. Expectations that fail there fail the test.
inline void isolated(int namespaces, auto&& part)
{
    fflush(stdout);
    pid_t outer = fork();
    if (outer == 0) {
        if (unshare(namespaces) < 0) _exit(90);
        if (namespaces & CLONE_NEWNS) mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        // The first process after the unshare is number 1 of the new process space.
        pid_t inner = fork();
        if (inner == 0) {
            if ((namespaces & CLONE_NEWPID) && mount("proc", "/proc", "proc", 0, nullptr) < 0) _exit(91);
            part();
            fflush(stdout);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 0;
        waitpid(inner, &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 92);
    }
    int status = 0;
    waitpid(outer, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "90: unshare, 91: mount, 92: killed, else a failure above";
}
