// Programs and processes that a test starts, and what they say.
#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// Whether a case may be skipped where the PC lacks what it needs; elsewhere it fails.
inline bool may_skip()
{
    const char* word = getenv("ZEP_MAY_SKIP");
    return word && std::string(word) == "1";
}

// The status as a shell gives it: 128 and the signal's number after a signal.
inline int exit_status(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

inline int end_of(pid_t child)
{
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return exit_status(status);
}

struct Said {
    int status = -1;
    std::string text; // standard output, and standard error where the command line joins it
};

// Runs a command line of the shell, without input.
inline Said say(const std::string& line)
{
    Said said;
    FILE* pipe = popen(("exec < /dev/null; " + line).c_str(), "r");
    if (!pipe) return said;
    std::array<char, 4096> piece;
    while (size_t n = fread(piece.data(), 1, piece.size(), pipe)) said.text.append(piece.data(), n);
    said.status = exit_status(pclose(pipe));
    return said;
}

// Runs a part of a test in a process of its own; the status is what it returns.
inline int in_child(auto&& part)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int status = part();
        fflush(nullptr);
        _exit(status);
    }
    return end_of(child);
}

// What an action writes to standard output.
inline std::string printed(auto&& action)
{
    testing::internal::CaptureStdout();
    action();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}
