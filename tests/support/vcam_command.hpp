// The vcam command itself, for the tests that look at what it says.
#pragma once

#include "tests/support/camera.hpp"

#include <array>
#include <cstdio>

struct Said {
    int status;
    std::string text; // standard output and standard error
};

inline Said vcam(const std::string& arguments)
{
    std::string line = std::string(VCAM) + " " + arguments + " 2>&1 < /dev/null", text;
    FILE* pipe = popen(line.c_str(), "r");
    std::array<char, 4096> chunk;
    while (size_t n = fread(chunk.data(), 1, chunk.size(), pipe)) text.append(chunk.data(), n);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), text};
}
