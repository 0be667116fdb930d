#include "board/arp_frame.hpp"

#include <gtest/gtest.h>

using namespace zep;

namespace {

constexpr HardwareAddress kOwn = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr HardwareAddress kOther = {0x02, 0x99, 0x88, 0x77, 0x66, 0x55};
constexpr ProtocolAddress kAddress = {192, 168, 1, 20};
constexpr ProtocolAddress kElse = {192, 168, 1, 21};

ArpFrame frame_of(uint16_t operation, const HardwareAddress& sender, const ProtocolAddress& from,
                  const ProtocolAddress& target)
{
    ArpFrame frame = make_arp_request(sender, from, target);
    frame[21] = uint8_t(operation);
    return frame;
}

ArpVerdict judge(const ArpFrame& frame)
{
    return judge_arp_frame(frame.data(), frame.size(), kOwn, kAddress);
}

} // namespace

TEST(ArpFrame, ProbeIsTheDocumentedFortyTwoBytes)
{
    const ArpFrame wanted = {
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0x08, 0x06,
        0x00, 0x01, 0x08, 0x00, 6,    4,    0x00, 0x01, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55,
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    192,  168,  1,    20,
    };
    EXPECT_EQ(make_arp_request(kOwn, {}, kAddress), wanted);
}

TEST(ArpFrame, OwnersAndProbersConflictOthersDoNot)
{
    EXPECT_EQ(judge(frame_of(2, kOther, kAddress, kElse)), ArpVerdict::conflict) << "a reply by the owner";
    EXPECT_EQ(judge(frame_of(1, kOther, kAddress, kElse)), ArpVerdict::conflict)
        << "the owner asks for another";
    EXPECT_EQ(judge(frame_of(1, kOther, {}, kAddress)), ArpVerdict::conflict) << "another prober";
    EXPECT_EQ(judge(frame_of(1, kOther, kElse, kAddress)), ArpVerdict::conflict) << "an ordinary question";
    EXPECT_EQ(judge(frame_of(2, kOwn, kAddress, kElse)), ArpVerdict::other)
        << "our own address in our own name";
    EXPECT_EQ(judge(frame_of(2, kOther, kElse, kAddress)), ArpVerdict::other) << "a reply to somebody";
    EXPECT_EQ(judge(frame_of(1, kOther, kElse, kElse)), ArpVerdict::other);
    ArpFrame to_us = frame_of(1, kOther, kElse, kAddress);
    std::copy(kOwn.begin(), kOwn.end(), to_us.begin() + 32);
    EXPECT_EQ(judge(to_us), ArpVerdict::other) << "a question that names us as the target";
}

TEST(ArpFrame, IgnoresShortFramesOtherTypesAndOtherOperations)
{
    ArpFrame reply = frame_of(2, kOther, kAddress, kElse);
    for (size_t length = 0; length < kArpFrameSize; ++length)
        EXPECT_EQ(judge_arp_frame(reply.data(), length, kOwn, kAddress), ArpVerdict::ignore) << length;
    EXPECT_EQ(judge(frame_of(3, kOther, kAddress, kElse)), ArpVerdict::ignore);
    EXPECT_EQ(judge(frame_of(0, kOther, kAddress, kElse)), ArpVerdict::ignore);
    reply[13] = 0x00;
    EXPECT_EQ(judge(reply), ArpVerdict::ignore);
}
