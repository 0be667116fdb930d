// Bytes to and from a board's console.
#pragma once

#include "tools/station/target/target.hpp"

#include <stdexcept>

namespace station {

// The far end has gone: one line for a person.
struct Broken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Wire {
public:
    virtual ~Wire() = default;
    Wire() = default;
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // Makes the connection, anew where it broke or stands; a serial port that is open stays so. Waits at most so long.
    // Throws std::runtime_error with one line, also once the watch says false.
    virtual void open(double seconds, const Watch& watch) = 0;
    // What has come, waiting at most wait_ms for a first byte. Throws Broken.
    virtual std::string read(int wait_ms) = 0;
    virtual void write(std::string_view bytes) = 0; // throws Broken
    // The board's address in a network; empty where there is none.
    [[nodiscard]] virtual std::string host() const { return {}; }
};

// A shell behind such a line. `name` is the target's, for messages.
std::unique_ptr<Target> console_target(std::unique_ptr<Wire> line, const std::string& name,
                                       const Access& access);

} // namespace station
