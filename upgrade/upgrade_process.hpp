// An upgrade outlives those who started it.
#pragma once

#include <csignal>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace zep {

// A service may start an upgrade with its output closed. The flash must not become standard error, or a
// message would be written into it.
inline void fill_closed_output()
{
    for (int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        int null = open("/dev/null", O_WRONLY);
        if (null < 0 || null == fd) continue;
        dup2(null, fd);
        close(null);
    }
}

// The services and shells that an upgrade ends may be the readers of its output or the leader of
// its terminal: their end must not interrupt it halfway through the flash.
inline void endure()
{
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    fill_closed_output();
}

// Brings in and locks the pages of the executable and its libraries. Those come from the root file
// system, and after that has been overwritten a page read late would be other code. Stacks and
// heap need no lock, they have no file behind them. Where locking is not permitted the pages
// stay as they are.
void pin_program();

} // namespace zep
