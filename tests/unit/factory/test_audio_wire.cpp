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

// Feeds the bytes in the pieces given by their ends and compares what comes out: messages numbered from 0.
void expect_messages(const Bytes& bytes, std::vector<size_t> ends,
                     std::span<const std::pair<uint16_t, Bytes>> sent)
{
    const auto receiver = std::make_unique<WireReceiver>();
    ends.push_back(bytes.size());
    size_t at = 0, count = 0;
    for (size_t end : ends) {
        std::span<const uint8_t> piece(bytes.data() + at, end - at);
        at = end;
        while (!piece.empty()) {
            const Result result = receiver->take(piece);
            ASSERT_NE(result, Result::fault);
            if (result != Result::message) continue;
            ASSERT_LT(count, sent.size());
            EXPECT_EQ(receiver->header().command, sent[count].first);
            EXPECT_EQ(receiver->header().number, count);
            EXPECT_EQ(Bytes(receiver->body().begin(), receiver->body().end()), sent[count++].second);
        }
    }
    EXPECT_EQ(count, sent.size());
}

TEST(AudioWire, EverySplitOfTheBytesGivesTheSameMessages)
{
    Bytes start(AUDIO_WIRE_START_WORDS * 4), bytes;
    for (size_t i = 0; i < start.size(); ++i) start[i] = uint8_t(i);
    const std::pair<uint16_t, Bytes> sent[] = {{AUDIO_WIRE_START_ENCODE, start},
                                               {AUDIO_WIRE_FRAME, {1}},
                                               {AUDIO_WIRE_STATUS, {}},
                                               {AUDIO_WIRE_STOP, {}}};
    for (uint32_t number = 0; number < std::size(sent); ++number) {
        const Bytes one = message(sent[number].first, number, sent[number].second);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    std::vector<size_t> single;
    for (size_t i = 1; i < bytes.size(); ++i) {
        single.push_back(i);
        expect_messages(bytes, {i}, sent);
        expect_messages(bytes, {i, std::min(i + 1, bytes.size())}, sent);
    }
    expect_messages(bytes, single, sent);
    expect_messages(bytes, {}, sent);
}

TEST(AudioWire, ALyingHeaderIsRefusedBeforeItsBodyIsTaken)
{
    const struct {
        size_t at;
        Bytes bytes; // of a header, in place of those of a stop
        const char* text = "";
    } lies[] = {
        {0, {'t'}},
        {4, {2}}, // a later version
        {5, {1}},
        {6, {0}},
        {6, {6}},
        {7, {1}},
        {6, {AUDIO_WIRE_STOP | AUDIO_WIRE_REPLY}},
        {8, {1}},
        {6, {AUDIO_WIRE_STATUS, 0, 28}},
        {6, {AUDIO_WIRE_FRAME, 0, 0}},
        {6, {AUDIO_WIRE_START_ENCODE, 0, 27}},
        {6, {AUDIO_WIRE_START_DECODE, 0, 32}},
        {6, {AUDIO_WIRE_FRAME, 0, 1, 0x90, 1}, "recv size(102401) is exeed RECV_BUFFER_SIZE(102400)\n"},
        {6, {AUDIO_WIRE_FRAME, 0, 255, 255, 255, 255}, "recv size(-1) is exeed RECV_BUFFER_SIZE(102400)\n"},
    };
    for (const auto& lie : lies) {
        const auto receiver = std::make_unique<WireReceiver>();
        Bytes bytes = message(AUDIO_WIRE_STOP, 0, {});
        std::copy(lie.bytes.begin(), lie.bytes.end(), bytes.begin() + long(lie.at));
        bytes.resize(64);
        std::span<const uint8_t> piece(bytes);
        EXPECT_EQ(printed([&] { EXPECT_EQ(receiver->take(piece), Result::fault) << lie.at; }), lie.text);
    }
    // The longest body that there is.
    const std::pair<uint16_t, Bytes> longest[] = {{AUDIO_WIRE_FRAME, Bytes(AUDIO_WIRE_MAX_BODY, 0x55)}};
    expect_messages(message(AUDIO_WIRE_FRAME, 0, longest[0].second), {}, longest);
}

} // namespace
