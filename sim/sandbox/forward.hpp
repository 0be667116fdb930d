// Carries connections and datagrams from sockets of one network space to the loopback of another.
#pragma once

#include "sim/sandbox/publish.hpp"

namespace vcam {

/**
 * Accepts on the ports, whose sockets are another network space's, and connects in the calling process's own. A
 * connection that is refused within the first seconds is tried again: the camera's program may still be starting.
 * Returns when the other end of `over` is closed and what the camera had sent by then is delivered.
 */
void forward(std::vector<OpenPort>& ports, int over);

} // namespace vcam
