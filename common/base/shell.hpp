// Fixed command lines through the shell.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace zep {

// Runs a command line and waits for it. What was printed before comes out before the command's
// own text, on a pipe too. Its result is not looked at: a failed step never stops the next.
inline void run_shell(const char* line)
{
    fflush(stdout);
    [[maybe_unused]] int status = system(line);
}

} // namespace zep
