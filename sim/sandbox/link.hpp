// A wire with a neighbour: the camera's eth0 and, in a network space of its own, another host's.
#pragma once

#include <string>

namespace vcam {

// Where the neighbour's network space stands in the camera: nsenter --net=/run/netns/neighbour COMMAND.
inline constexpr const char* kNeighbour = "/run/netns/neighbour";

// Makes eth0 in this network space, up and without an address, and the neighbour's eth0 with the address
// (dotted, in a network of 24 bits). The kernel answers for the neighbour. Throws.
void make_link(const std::string& address);

// Throws when the text is no address of version 4 that a host can have.
void check_link(const std::string& address);

} // namespace vcam
