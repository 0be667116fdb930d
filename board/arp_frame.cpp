// ARP frames: building the probe, judging what arrives.
#include "board/arp_frame.hpp"

#include "common/base/bytes.hpp"

namespace zep {

namespace {

// clang-format off
constexpr size_t kDestination = 0, kSource = 6, kType = 12, kHardwareType = 14, kProtocolType = 16,
                 kHardwareLength = 18, kProtocolLength = 19, kOperation = 20, kSenderHardware = 22,
                 kSenderProtocol = 28, kTargetHardware = 32, kTargetProtocol = 38;
// clang-format on
constexpr uint16_t kTypeArp = 0x0806;
constexpr uint16_t kRequest = 1;
constexpr uint16_t kReply = 2;

template<size_t N> bool same(const uint8_t* frame, size_t at, const std::array<uint8_t, N>& address)
{
    return memcmp(frame + at, address.data(), N) == 0;
}

} // namespace

ArpFrame make_arp_request(const HardwareAddress& own, const ProtocolAddress& sender,
                          const ProtocolAddress& target)
{
    ArpFrame frame = {};
    memset(&frame[kDestination], 0xFF, own.size());
    memcpy(&frame[kSource], own.data(), own.size());
    store_be16(&frame[kType], kTypeArp);
    store_be16(&frame[kHardwareType], 1);
    store_be16(&frame[kProtocolType], 0x0800);
    frame[kHardwareLength] = uint8_t(own.size());
    frame[kProtocolLength] = uint8_t(sender.size());
    store_be16(&frame[kOperation], kRequest);
    memcpy(&frame[kSenderHardware], own.data(), own.size());
    memcpy(&frame[kSenderProtocol], sender.data(), sender.size());
    memcpy(&frame[kTargetProtocol], target.data(), target.size());
    return frame;
}

ArpVerdict judge_arp_frame(const uint8_t* frame, size_t length, const HardwareAddress& own,
                           const ProtocolAddress& probed)
{
    if (length < kArpFrameSize || load_be16(frame + kType) != kTypeArp) return ArpVerdict::ignore;
    uint16_t operation = load_be16(frame + kOperation);
    if (operation != kRequest && operation != kReply) return ArpVerdict::ignore;
    if (same(frame, kSenderProtocol, probed) && !same(frame, kSenderHardware, own))
        return ArpVerdict::conflict;
    // Any host's ordinary question for the address counts too: its target hardware address is not ours.
    if (operation == kRequest && same(frame, kTargetProtocol, probed) && !same(frame, kTargetHardware, own))
        return ArpVerdict::conflict;
    return ArpVerdict::other;
}

HardwareAddress arp_sender(const uint8_t* frame)
{
    HardwareAddress address;
    memcpy(address.data(), frame + kSenderHardware, address.size());
    return address;
}

} // namespace zep
