// Calls of the C library that fail, or end the process, when told: those of a program that cmake/tests.cmake's
// failing_calls() links, by their names there (of a build with 64-bit file offsets).
#pragma once

#include <string>

namespace failing {

inline constexpr const char* kCalls[] = {"open64",  "fstat64", "read",  "write",  "fchown", "fchmod",
                                         "lstat64", "fsync",   "close", "rename", "malloc"};

// The nth call (from 1) of a name, or with an empty name of any of them, fails once with EIO, ENOMEM for
// malloc; or kills the process before it is made. A close that fails has closed.
void arm(const std::string& name, int nth, bool kill = false);

// Ends that. True when the call was reached.
bool disarm();

} // namespace failing
