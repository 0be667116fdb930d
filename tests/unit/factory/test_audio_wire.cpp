// Messages of the audio loop-back test, from bytes in any pieces.
#include "factory/acodec_uapi.h"
#include "factory/audio_wire.hpp"
#include "tests/support/run.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zep;
using Bytes = std::vector<uint8_t>;
using Result = WireReceiver::Result;

Bytes message(uint16_t command, uint32_t number, const Bytes& body)
{
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({command, uint32_t(body.size()), number}, header);
    Bytes all(header, header + sizeof header);
    all.insert(all.end(), body.begin(), body.end());
    return all;
}

TEST(AudioWire, TheHeaderIsWhatStationsSend)
{
    const Bytes expected = {'T', 'A', 'U', 'D', 1, 0, 4, 0, 3, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 9, 8, 7};
    EXPECT_EQ(message(AUDIO_WIRE_FRAME, 0x12345678, {9, 8, 7}), expected);
}

// Feeds the bytes in the pieces given by their ends and collects what comes out.
std::vector<std::pair<WireHeader, Bytes>> collect(const Bytes& bytes, std::vector<size_t> ends)
{
    auto receiver = std::make_unique<WireReceiver>();
    std::vector<std::pair<WireHeader, Bytes>> out;
    ends.push_back(bytes.size());
    size_t at = 0;
    for (size_t end : ends) {
        std::span<const uint8_t> piece(bytes.data() + at, end - at);
        at = end;
        while (!piece.empty()) {
            const Result result = receiver->take(piece);
            EXPECT_NE(result, Result::fault);
            if (result == Result::message)
                out.emplace_back(receiver->header(), Bytes(receiver->body().begin(), receiver->body().end()));
        }
    }
    return out;
}

TEST(AudioWire, EverySplitOfTheBytesGivesTheSameMessages)
{
    Bytes start(AUDIO_WIRE_START_WORDS * 4);
    for (size_t i = 0; i < start.size(); ++i) start[i] = uint8_t(i);
    const std::pair<uint16_t, Bytes> sent[] = {{AUDIO_WIRE_START_ENCODE, start},
                                               {AUDIO_WIRE_FRAME, {1}},
                                               {AUDIO_WIRE_STATUS, {}},
                                               {AUDIO_WIRE_STOP, {}}};
    Bytes bytes;
    uint32_t number = 0;
    for (const auto& [command, body] : sent) {
        const Bytes one = message(command, number++, body);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    std::vector<std::vector<size_t>> splits = {{}};
    for (size_t i = 1; i < bytes.size(); ++i) {
        splits.push_back({i});
        splits.push_back({i, std::min(i + 1, bytes.size())});
    }
    std::vector<size_t> single;
    for (size_t i = 1; i < bytes.size(); ++i) single.push_back(i);
    splits.push_back(single);
    for (const auto& ends : splits) {
        const auto got = collect(bytes, ends);
        ASSERT_EQ(got.size(), std::size(sent));
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(got[i].first.command, sent[i].first);
            EXPECT_EQ(got[i].first.number, i);
            EXPECT_EQ(got[i].second, sent[i].second);
        }
    }
}

TEST(AudioWire, ALyingHeaderIsRefusedBeforeItsBodyIsTaken)
{
    const auto with = [](size_t at, uint8_t value) {
        Bytes bytes = message(AUDIO_WIRE_STOP, 0, {});
        bytes[at] = value;
        return bytes;
    };
    const auto claims = [](uint16_t command, uint32_t length) {
        uint8_t header[AUDIO_WIRE_HEADER];
        write_header({command, length, 0}, header);
        return Bytes(header, header + sizeof header);
    };
    const std::pair<Bytes, std::string> lies[] = {
        {with(0, 't'), ""},
        {with(4, 2), ""}, // a later version
        {with(5, 1), ""},
        {with(6, 0), ""},
        {with(6, 6), ""},
        {with(7, 1), ""},
        {claims(AUDIO_WIRE_STOP | AUDIO_WIRE_REPLY, 0), ""},
        {claims(AUDIO_WIRE_STOP, 1), ""},
        {claims(AUDIO_WIRE_STATUS, 28), ""},
        {claims(AUDIO_WIRE_FRAME, 0), ""},
        {claims(AUDIO_WIRE_START_ENCODE, 27), ""},
        {claims(AUDIO_WIRE_START_DECODE, 32), ""},
        {claims(AUDIO_WIRE_FRAME, 102401), "recv size(102401) is exeed RECV_BUFFER_SIZE(102400)\n"},
        {claims(AUDIO_WIRE_FRAME, 0xFFFFFFFF), "recv size(-1) is exeed RECV_BUFFER_SIZE(102400)\n"},
    };
    for (const auto& [bytes, text] : lies) {
        auto receiver = std::make_unique<WireReceiver>();
        Bytes long_message = bytes;
        long_message.resize(64);
        std::span<const uint8_t> piece(long_message);
        EXPECT_EQ(printed([&] { EXPECT_EQ(receiver->take(piece), Result::fault); }), text);
    }
    // The longest body that there is.
    auto receiver = std::make_unique<WireReceiver>();
    const Bytes longest = message(AUDIO_WIRE_FRAME, 0, Bytes(AUDIO_WIRE_MAX_BODY, 0x55));
    std::span<const uint8_t> piece(longest);
    EXPECT_EQ(receiver->take(piece), Result::message);
    EXPECT_EQ(receiver->body().size(), size_t(AUDIO_WIRE_MAX_BODY));
    EXPECT_EQ(receiver->body().back(), 0x55);
    EXPECT_TRUE(piece.empty());
}

} // namespace
