// Ports of the host that lead into a camera.
#pragma once

#include "sim/base/files.hpp"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vcam {

// One published port, TCP and UDP alike.
struct Port {
    std::string host = "127.0.0.1"; // the host's address; only it is listened on
    uint16_t outside = 0;           // the host's port, 0: any free one
    uint16_t inside = 0;            // the camera's port, on its loopback
};

// [HOST:]PORT[:PORT]; an address of version 6 stands in brackets. Throws.
Port parse_port(const std::string& words);

// A port with the host's sockets for it.
struct OpenPort {
    Port port;
    Fd listener, datagrams;
};

/**
 * Leads connections and datagrams from the host's ports to the camera's loopback. A process of its own does it, which
 * has the host's sockets and lives in the camera's network space. The sockets are there from the constructor on, so a
 * station may connect before the camera has started.
 */
class Publisher {
public:
    // Throws when a port is taken. A port 0 is said on standard error with its number.
    explicit Publisher(const std::vector<Port>& ports);
    // Ends the forwarding: what the camera has sent until then still arrives, within two seconds.
    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;
    // Forwards to the camera whose first process has the number `init` on the host. Throws when fork fails.
    void start(pid_t init);

private:
    [[noreturn]] void forward_to(pid_t init, Fd& over);

    std::vector<OpenPort> ports_;
    Fd running_; // its end is the forwarder's sign to finish
    pid_t forwarder_ = 0;
};

} // namespace vcam
