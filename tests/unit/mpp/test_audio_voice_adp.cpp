#include "base/mpp_error.h"
#include "mpi/audio/audio_voice_adp.h"
#include "mpi/src/mpi_codec_registry.h"
#include "tests/unit/mpp/codec_signals.hpp"
#include "tests/support/run.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace codec_test;

namespace {

constexpr int32_t code(uint32_t value) { return int32_t(value); }

struct Frame {
    std::vector<int16_t> left, right;
    AUDIO_FRAME_S record{};

    explicit Frame(size_t points, bool stereo = false)
        : left(signal(kTilted, points)), right(signal(kLoudNoise, points))
    {
        record.u32BitWidth = AUDIO_BIT_WIDTH_16;
        record.u32SoundMode = stereo ? AUDIO_SOUND_STEREO : AUDIO_SOUND_MONO;
        record.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(left.data());
        if (stereo) record.pu8VirtAddr[1] = reinterpret_cast<uint8_t*>(right.data());
        record.u32Len = uint32_t(points * 2);
        record.s32PoolId = -1;
    }
};

class Adapter : public testing::Test {
protected:
    Adapter()
    {
        EXPECT_EQ(MPI_AENC_RegisterBuiltIn(), 0);
        EXPECT_EQ(MPI_ADEC_RegisterBuiltIn(), 0);
    }
    ~Adapter() override
    {
        MPI_AENC_ClearRegistry();
        MPI_ADEC_ClearRegistry();
    }

    // Encodes with a fresh encoder into exactly `room` bytes; the result is cut to what was written.
    int32_t encode(int32_t type, uint32_t attribute, const AUDIO_FRAME_S& frame, uint32_t room,
                   std::vector<uint8_t>& out)
    {
        AENC_ENCODER_S encoder;
        void* handle = nullptr;
        EXPECT_EQ(MPI_AENC_FindEncoder(type, &encoder), 0);
        EXPECT_EQ(encoder.pfnOpenEncoder(&attribute, &handle), 0);
        out.assign(room + 1, 0xee);
        uint32_t length = room;
        const int32_t result = encoder.pfnEncodeFrm(handle, &frame, out.data(), &length);
        EXPECT_EQ(out[room], 0xee);
        if (result != 0) {
            EXPECT_EQ(out, std::vector<uint8_t>(room + 1, 0xee));
        }
        EXPECT_EQ(encoder.pfnCloseEncoder(handle), 0);
        out.resize(result == 0 ? length : 0);
        return result;
    }

    // Hands `octets` to a fresh decoder, `chunk` more of them at a time, as a channel does.
    std::vector<int16_t> decode(int32_t type, uint32_t attribute, std::vector<uint8_t> octets, size_t chunk)
    {
        ADEC_DECODER_S decoder;
        void* handle = nullptr;
        EXPECT_EQ(MPI_ADEC_FindDecoder(type, &decoder), 0);
        EXPECT_EQ(decoder.pfnOpenDecoder(&attribute, &handle), 0);
        std::vector<int16_t> pcm;
        uint8_t* position = octets.data();
        int32_t left = 0;
        for (size_t given = 0; given < octets.size();) {
            const size_t more = std::min(chunk, octets.size() - given);
            given += more;
            left += int32_t(more);
            for (int32_t before = -1; left > 0 && before != left;) {
                before = left;
                uint16_t out[AUDIO_MAX_POINTS * 2 + 1];
                out[AUDIO_MAX_POINTS] = 0xbeef;
                uint32_t length = 77, channels = 0;
                decoder.pfnDecodeFrm(handle, &position, &left, out, &length, &channels);
                EXPECT_EQ(out[AUDIO_MAX_POINTS], 0xbeef);
                EXPECT_EQ(channels, 1u);
                pcm.insert(pcm.end(), out, out + length / 2);
                EXPECT_EQ(position + left, octets.data() + given);
            }
        }
        EXPECT_EQ(decoder.pfnCloseDecoder(handle), 0);
        return pcm;
    }
};

} // namespace

TEST_F(Adapter, RegistriesHoldExactlyTheFiveBuiltInCodecsInOrder)
{
    const struct {
        const char* name;
        int32_t type;
        uint32_t longest;
    } rows[] = {
        {"Lpcm", 23, 8192}, {"G711a", 19, 960}, {"G711u", 20, 960}, {"Adpcm", 49, 480}, {"G726", 21, 960}};
    AENC_ENCODER_S encoder;
    ADEC_DECODER_S decoder;
    for (int32_t i = 0; i < 5; ++i) {
        char padded[CODEC_NAME_LEN] = {};
        strcpy(padded, rows[i].name);
        ASSERT_EQ(MPI_AENC_GetEncoder(i, &encoder), 0);
        EXPECT_EQ(memcmp(encoder.aszName, padded, sizeof padded), 0);
        EXPECT_EQ(encoder.enType, rows[i].type);
        EXPECT_EQ(encoder.u32MaxFrmLen, rows[i].longest);
        ASSERT_EQ(MPI_ADEC_GetDecoder(i, &decoder), 0);
        EXPECT_EQ(memcmp(decoder.aszName, padded, sizeof padded), 0);
        EXPECT_EQ(decoder.enType, rows[i].type);
        EXPECT_EQ(decoder.pfnGetFrmInfo, GetFrmInfo);
    }
    EXPECT_EQ(MPI_AENC_GetEncoder(5, &encoder), code(0xA0178003));
    EXPECT_EQ(MPI_ADEC_GetDecoder(5, &decoder), code(0xA0188003));
}

TEST_F(Adapter, RegistrationRefusesWhatIsMissingDoubleOrTooMuch)
{
    AENC_ENCODER_S encoder;
    ADEC_DECODER_S decoder;
    ASSERT_EQ(MPI_AENC_GetEncoder(1, &encoder), 0);
    ASSERT_EQ(MPI_ADEC_GetDecoder(1, &decoder), 0);
    int32_t handle = 77;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &encoder), code(0xA017800F));
    EXPECT_EQ(HI_MPI_ADEC_RegeisterDecoder(&handle, &decoder), code(0xA018800F));

    testing::internal::CaptureStderr();
    AENC_ENCODER_S no_close = encoder;
    no_close.pfnCloseEncoder = nullptr;
    ADEC_DECODER_S no_information = decoder;
    no_information.pfnGetFrmInfo = nullptr;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(nullptr, &encoder), code(0xA0178006));
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, nullptr), code(0xA0178006));
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &no_close), code(0xA0178006));
    EXPECT_EQ(HI_MPI_ADEC_RegeisterDecoder(&handle, &no_information), code(0xA0188006));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("[Func]:HI_MPI_AENC_RegeisterEncoder [Line]:"), 0u);
    EXPECT_NE(text.find(" [Info]:Audio some err:0xa0178006, line "), std::string::npos);
    EXPECT_NE(text.find(" [Info]:Audio some err:0xa0188006\n"), std::string::npos);
    EXPECT_EQ(handle, 77);

    for (int32_t i = 5; i < CODEC_REGISTRY_SIZE; ++i) {
        encoder.enType = 1000 + i;
        ASSERT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &encoder), 0);
        EXPECT_EQ(handle, i);
    }
    encoder.enType = 2000;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &encoder), code(0xA017800F));
    EXPECT_EQ(MPI_AENC_FindEncoder(2000, &encoder), code(0xA0178003));
    EXPECT_EQ(MPI_AENC_FindEncoder(-1, &encoder), code(0xA0178003));
    MPI_AENC_ClearRegistry();
    EXPECT_EQ(MPI_AENC_RegisterBuiltIn(), 0);
    EXPECT_EQ(MPI_AENC_RegisterBuiltIn(), code(0xA017800F));
}

TEST(AdapterAssertions, NameTheArgumentOnStandardOutputAndEndTheProcess)
{
    uint32_t word = 0, channels = 0, length = 100;
    void* handle = nullptr;
    Frame frame(160);
    uint8_t octets[200], *position = octets;
    int32_t left = 100;
    uint16_t pcm[AUDIO_MAX_POINTS * 2];
    const struct {
        const char *function, *condition;
        std::function<void()> call;
    } cases[] = {
        {"OpenG711AEncoder", "ppEncoder != NULL", [&] { OpenG711AEncoder(&word, nullptr); }},
        {"OpenG726Encoder", "pEncoderAttr != NULL", [&] { OpenG726Encoder(nullptr, &handle); }},
        {"EncodeG711UFrm", "pEncoder != NULL",
         [&] { EncodeG711UFrm(nullptr, &frame.record, octets, &length); }},
        {"EncodeLPCMFrm", "pstData != NULL", [&] { EncodeLPCMFrm(nullptr, nullptr, octets, &length); }},
        {"EncodeADPCMFrm", "pu8Outbuf != NULL",
         [&] { EncodeADPCMFrm(&word, &frame.record, nullptr, &length); }},
        {"EncodeG726Frm", "pu32OutLen != NULL",
         [&] { EncodeG726Frm(&word, &frame.record, octets, nullptr); }},
        {"CloseADPCMEncoder", "pEncoder != NULL", [&] { CloseADPCMEncoder(nullptr); }},
        {"OpenADPCMDecoder", "ppDecoder != NULL", [&] { OpenADPCMDecoder(&word, nullptr); }},
        {"OpenG711UDecoder", "pDecoderAttr != NULL", [&] { OpenG711UDecoder(nullptr, &handle); }},
        {"DecodeG726Frm", "pDecoder != NULL",
         [&] { DecodeG726Frm(nullptr, &position, &left, pcm, &length, &channels); }},
        {"DecodeLPCMFrm", "pu8Inbuf != NULL",
         [&] { DecodeLPCMFrm(nullptr, nullptr, &left, pcm, &length, &channels); }},
        {"DecodeG711AFrm", "ps32LeftByte != NULL",
         [&] { DecodeG711AFrm(&word, &position, nullptr, pcm, &length, &channels); }},
        {"DecodeADPCMFrm", "pu16Outbuf != NULL",
         [&] { DecodeADPCMFrm(&word, &position, &left, nullptr, &length, &channels); }},
        {"DecodeG711UFrm", "pu32Chns != NULL",
         [&] { DecodeG711UFrm(&word, &position, &left, pcm, &length, nullptr); }},
        {"CloseG711ADecoder", "pDecoder != NULL", [&] { CloseG711ADecoder(nullptr); }},
    };
    for (const auto& c : cases) {
        const auto call = [&] { return c.call(), 0; };
        const std::string text = printed([&] { EXPECT_EQ(in_child(call), 255) << c.function; });
        EXPECT_EQ(
            text.find(
                std::string(
                    "\nASSERT failed at:\n  >File name: mpp/code/mpi/audio/audio_voice_adp\n  >Function : ") +
                c.function + "\n  >Line No. : "),
            0u)
            << text;
        EXPECT_NE(text.find(std::string("\n  >Condition: ") + c.condition + "\n"), std::string::npos) << text;
    }
}

TEST_F(Adapter, AFrameFillsExactlyItsBytesAndIsRefusedWholeInOneByteLess)
{
    const struct {
        int32_t type;
        uint32_t attribute;
        size_t points;
        bool stereo;
        uint32_t bytes;
    } cases[] = {{PT_LPCM, 0, 160, false, 320},       {PT_LPCM, 0, 2048, true, 8192},
                 {PT_G711A, 0, 160, false, 160},      {PT_G711U, 0, 960, false, 960},
                 {PT_ADPCM, 0, 160, false, 84},       {PT_ADPCM, ADPCM_IMA_BLOCK, 953, false, 480},
                 {PT_G726, G726_16K, 320, false, 80}, {PT_G726, G726_24K, 80, false, 30},
                 {PT_G726, G726_32K, 160, false, 80}, {PT_G726, G726_40K_AAL2, 480, false, 300}};
    for (const auto& c : cases) {
        Frame frame(c.points, c.stereo);
        std::vector<uint8_t> out;
        EXPECT_EQ(encode(c.type, c.attribute, frame.record, c.bytes, out), 0) << c.type;
        EXPECT_EQ(out.size(), c.bytes);
        EXPECT_EQ(encode(c.type, c.attribute, frame.record, c.bytes - 1, out), code(0xA017800F)) << c.type;
        if (c.stereo) {
            EXPECT_EQ(int16_t(out.size()), 0);
            encode(c.type, c.attribute, frame.record, c.bytes, out);
            EXPECT_EQ(int16_t(out[4] | out[5] << 8), frame.left[1]);
            EXPECT_EQ(int16_t(out[6] | out[7] << 8), frame.right[1]);
        }
    }
}

TEST_F(Adapter, FramesThatACodecCannotCarryAreRefused)
{
    std::vector<uint8_t> out;
    for (int32_t type : {PT_LPCM, PT_G711A, PT_G711U, PT_ADPCM, PT_G726}) {
        const std::function<void(AUDIO_FRAME_S&)> faults[] = {
            [](AUDIO_FRAME_S& f) { f.u32BitWidth = AUDIO_BIT_WIDTH_8; },
            [](AUDIO_FRAME_S& f) { f.u32Len = 0; },
            [](AUDIO_FRAME_S& f) { f.u32Len = 321; },
            [](AUDIO_FRAME_S& f) { f.u32Len = 4098; },
            [](AUDIO_FRAME_S& f) { f.u32Len = 0xfffffffe; },
            [](AUDIO_FRAME_S& f) { f.u32SoundMode = 2; }};
        for (const auto& spoil : faults) {
            Frame frame(160);
            spoil(frame.record);
            EXPECT_EQ(encode(type, 0, frame.record, 9000, out), code(0xA0178003)) << type;
        }
        Frame empty(160);
        empty.record.pu8VirtAddr[0] = nullptr;
        EXPECT_EQ(encode(type, 0, empty.record, 9000, out), code(0xA0178006)) << type;
        if (type != PT_LPCM) {
            EXPECT_EQ(encode(type, 0, Frame(160, true).record, 9000, out), code(0xA0178003)) << type;
        }
    }
    EXPECT_EQ(encode(PT_G711A, 0, Frame(961).record, 9000, out), code(0xA0178003));
    EXPECT_EQ(encode(PT_G726, G726_24K, Frame(161).record, 9000, out), code(0xA0178003));
    testing::internal::CaptureStderr();
    EXPECT_EQ(encode(PT_ADPCM, ADPCM_DVI4, Frame(161).record, 9000, out), code(0xA0178003));
    EXPECT_EQ(encode(PT_ADPCM, ADPCM_DVI4, Frame(954).record, 9000, out), code(0xA0178003));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("[Func]:EncodeADPCMFrm [Line]:"), 0u);
    EXPECT_NE(text.find(" [Info]:the u32PtNumPerFrm"), std::string::npos);
}

TEST_F(Adapter, AStreamDecodesAlikeInEveryChunkingAndLeavesOnlyAShortTail)
{
    const struct {
        int32_t type;
        uint32_t attribute;
        size_t bytes, points; // of the smallest whole frame
    } cases[] = {{PT_LPCM, 0, 2, 1},        {PT_G711A, 0, 1, 1},
                 {PT_G711U, 0, 1, 1},       {PT_G726, G726_16K, 1, 4},
                 {PT_G726, G726_24K, 3, 8}, {PT_G726, G726_32K, 1, 2},
                 {PT_G726, G726_40K, 5, 8}, {PT_ADPCM, ADPCM_DVI4 | 160 << 16, 84, 160}};
    for (const auto& c : cases) {
        ADEC_FRAME_INFO_S information{};
        ADEC_DECODER_S decoder;
        void* handle = nullptr;
        uint32_t attribute = c.attribute;
        MPI_ADEC_FindDecoder(c.type, &decoder);
        ASSERT_EQ(decoder.pfnOpenDecoder(&attribute, &handle), 0);
        EXPECT_EQ(decoder.pfnGetFrmInfo(handle, &information), 0);
        EXPECT_EQ(information.u32FrmBytes, c.bytes);
        EXPECT_EQ(information.u32PtNumPerFrm, c.points);
        EXPECT_EQ(decoder.pfnGetFrmInfo(handle, nullptr), code(0xA0188006));
        decoder.pfnCloseDecoder(handle);

        auto noise = bytes_of(signal(kLoudNoise, 10007));
        for (size_t i = 2; c.type == PT_ADPCM && i < noise.size(); i += 84) noise[i] %= 89;
        const auto whole = decode(c.type, c.attribute, noise, noise.size());
        EXPECT_EQ(whole.size(), noise.size() / c.bytes * c.points) << c.type;
        for (size_t chunk : {1u, 7u, 160u, 5000u})
            EXPECT_EQ(decode(c.type, c.attribute, noise, chunk), whole) << c.type;
    }
}

TEST_F(Adapter, DamagedAdpcmFramesArePassedOverAndImpossibleArgumentsRefused)
{
    uint32_t attribute = ADPCM_DVI4, length = 0, channels = 0;
    void* handle = nullptr;
    ASSERT_EQ(OpenADPCMDecoder(&attribute, &handle), 0);
    std::vector<uint8_t> octets(3000, 0xff);
    uint16_t pcm[AUDIO_MAX_POINTS * 2];
    for (int32_t size : {84, 1029, 3000}) { // step index 255; and one octet more than 2,048 points
        uint8_t* position = octets.data();
        int32_t left = size;
        octets[2] = size == 84 ? 255 : 0;
        EXPECT_EQ(DecodeADPCMFrm(handle, &position, &left, pcm, &length, &channels), code(0xA0188003));
        EXPECT_EQ(left, 0);
        EXPECT_EQ(position, octets.data() + size);
        EXPECT_EQ(length, 0u);
    }
    uint8_t *position = octets.data(), *nowhere = nullptr;
    int32_t negative = -1, left = 4;
    EXPECT_EQ(DecodeADPCMFrm(handle, &position, &negative, pcm, &length, &channels), code(0xA0188003));
    EXPECT_EQ(DecodeADPCMFrm(handle, &nowhere, &left, pcm, &length, &channels), code(0xA0188006));
    EXPECT_EQ(DecodeADPCMFrm(handle, &position, &left, pcm, &length, &channels),
              0); // a header is no frame yet
    EXPECT_EQ(left, 4);
    CloseADPCMDecoder(handle);

    void* none = nullptr;
    attribute = 8;
    EXPECT_EQ(OpenG726Encoder(&attribute, &none), code(0xA0178003));
    EXPECT_EQ(OpenG726Decoder(&attribute, &none), code(0xA0188003));
    EXPECT_EQ(OpenADPCMEncoder(&attribute, &none), code(0xA0178003));
    attribute = ADPCM_DVI4 | 161 << 16;
    EXPECT_EQ(OpenADPCMDecoder(&attribute, &none), code(0xA0188003));
    EXPECT_EQ(none, nullptr);
}
