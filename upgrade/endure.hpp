// An upgrade outlives those who started it.
#pragma once

#include <csignal>

namespace zep {

// The services and shells that an upgrade ends may be the readers of its output or the leader of
// its terminal: their end must not interrupt it halfway through the flash.
inline void endure()
{
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
}

} // namespace zep
