// ARP frames on Ethernet (RFC 826) and the probe (RFC 5227).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zep {

constexpr size_t kArpFrameSize = 42;
using ArpFrame = std::array<uint8_t, kArpFrameSize>;
using HardwareAddress = std::array<uint8_t, 6>;
using ProtocolAddress = std::array<uint8_t, 4>;

enum class ArpVerdict { ignore, conflict, other };

// A broadcast request with the sender's protocol address as given; 0.0.0.0 makes it a probe.
ArpFrame make_arp_request(const HardwareAddress& own, const ProtocolAddress& sender,
                          const ProtocolAddress& target);

// What a received frame means for the probed address: `ignore` when it is not a whole ARP request or reply,
// `conflict` when another host owns or probes the address, else `other`.
ArpVerdict judge_arp_frame(const uint8_t* frame, size_t length, const HardwareAddress& own,
                           const ProtocolAddress& probed);

// The sender's hardware address of a frame that was not ignored.
HardwareAddress arp_sender(const uint8_t* frame);

} // namespace zep
