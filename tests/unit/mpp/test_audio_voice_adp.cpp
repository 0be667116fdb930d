// The adapter between channels and codecs, through the registries that hold it.
#include "base/mpp_error.h"
#include "mpi/audio/audio_voice_adp.h"
#include "mpi/src/mpi_codec_registry.h"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <string>
#include <unistd.h>

using namespace codec_test;

namespace {

constexpr int32_t encoding(uint32_t number) { return MPP_ERROR(HI_ID_AENC, number); }
constexpr int32_t decoding(uint32_t number) { return MPP_ERROR(HI_ID_ADEC, number); }

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

    // Encodes with a fresh encoder into exactly `room` bytes; leaves what was written in `out`.
    int32_t encode(int32_t type, uint32_t attribute, const AUDIO_FRAME_S& frame, uint32_t room = 9000)
    {
        EXPECT_EQ(MPI_AENC_FindEncoder(type, &encoder), 0);
        EXPECT_EQ(encoder.pfnOpenEncoder(&attribute, &handle), 0);
        out.assign(room + 1, 0xee);
        uint32_t length = room;
        const int32_t result = encoder.pfnEncodeFrm(handle, &frame, out.data(), &length);
        EXPECT_EQ(out[room], 0xee);
        EXPECT_TRUE(result == 0 || out == std::vector<uint8_t>(room + 1, 0xee)) << "refused, but written";
        EXPECT_EQ(encoder.pfnCloseEncoder(handle), 0);
        out.resize(result == 0 ? length : 0);
        return result;
    }

    AENC_ENCODER_S encoder = {};
    ADEC_DECODER_S decoder = {};
    void* handle = nullptr;
    std::vector<uint8_t> out;
};

// Types, longest frames, and what a decoder says of its smallest frame with this attribute.
constexpr struct {
    const char* name;
    int32_t type;
    uint32_t longest, attribute, bytes, points;
} kBuiltIn[] = {{"Lpcm", 23, 8192, 0, 2, 1},
                {"G711a", 19, 960, 0, 1, 1},
                {"G711u", 20, 960, 0, 1, 1},
                {"Adpcm", 49, 480, ADPCM_DVI4 | 160 << 16, 84, 160},
                {"G726", 21, 960, G726_40K, 5, 8}};

TEST_F(Adapter, RegistriesHoldExactlyTheFiveBuiltInCodecsInOrder)
{
    const auto frame_is = [&](uint32_t attribute, uint32_t bytes, uint32_t points) {
        ADEC_FRAME_INFO_S information{};
        ASSERT_EQ(decoder.pfnOpenDecoder(&attribute, &handle), 0);
        EXPECT_EQ(decoder.pfnGetFrmInfo(handle, &information), 0);
        EXPECT_EQ(information.u32FrmBytes, bytes) << decoder.aszName;
        EXPECT_EQ(information.u32PtNumPerFrm, points) << decoder.aszName;
        EXPECT_EQ(decoder.pfnGetFrmInfo(handle, nullptr), decoding(MPP_ERR_NULL));
        decoder.pfnCloseDecoder(handle);
    };
    for (int32_t i = 0; i < 5; ++i) {
        ASSERT_EQ(MPI_AENC_GetEncoder(i, &encoder), 0);
        EXPECT_STREQ(encoder.aszName, kBuiltIn[i].name);
        EXPECT_EQ(encoder.enType, kBuiltIn[i].type);
        EXPECT_EQ(encoder.u32MaxFrmLen, kBuiltIn[i].longest);
        ASSERT_EQ(MPI_ADEC_GetDecoder(i, &decoder), 0);
        EXPECT_STREQ(decoder.aszName, kBuiltIn[i].name);
        EXPECT_EQ(decoder.enType, kBuiltIn[i].type);
        frame_is(kBuiltIn[i].attribute, kBuiltIn[i].bytes, kBuiltIn[i].points);
    }
    frame_is(G726_16K, 1, 4);
    frame_is(G726_24K, 3, 8);
    frame_is(G726_32K, 1, 2);
    EXPECT_EQ(MPI_AENC_GetEncoder(5, &encoder), encoding(MPP_ERR_PARAM));
    EXPECT_EQ(MPI_ADEC_GetDecoder(5, &decoder), decoding(MPP_ERR_PARAM));
}

TEST_F(Adapter, RegistrationRefusesWhatIsMissingDoubleOrTooMuch)
{
    ASSERT_EQ(MPI_AENC_GetEncoder(1, &encoder), 0);
    ASSERT_EQ(MPI_ADEC_GetDecoder(1, &decoder), 0);
    int32_t number = 77;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&number, &encoder), encoding(MPP_ERR_FULL));
    EXPECT_EQ(HI_MPI_ADEC_RegeisterDecoder(&number, &decoder), decoding(MPP_ERR_FULL));

    testing::internal::CaptureStderr();
    AENC_ENCODER_S no_close = encoder;
    no_close.pfnCloseEncoder = nullptr;
    ADEC_DECODER_S no_information = decoder;
    no_information.pfnGetFrmInfo = nullptr;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(nullptr, &encoder), encoding(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&number, nullptr), encoding(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&number, &no_close), encoding(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_RegeisterDecoder(&number, &no_information), decoding(MPP_ERR_NULL));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("[Func]:HI_MPI_AENC_RegeisterEncoder [Line]:"), 0u);
    EXPECT_NE(text.find(" [Info]:Audio some err:0xa0178006, line "), std::string::npos);
    EXPECT_NE(text.find(" [Info]:Audio some err:0xa0188006\n"), std::string::npos);
    EXPECT_EQ(number, 77);

    for (int32_t i = 5; i < CODEC_REGISTRY_SIZE; ++i) {
        encoder.enType = 1000 + i;
        ASSERT_EQ(HI_MPI_AENC_RegeisterEncoder(&number, &encoder), 0);
        EXPECT_EQ(number, i);
    }
    encoder.enType = 2000;
    EXPECT_EQ(HI_MPI_AENC_RegeisterEncoder(&number, &encoder), encoding(MPP_ERR_FULL));
    for (int32_t type : {2000, -1}) EXPECT_EQ(MPI_AENC_FindEncoder(type, &encoder), encoding(MPP_ERR_PARAM));
    MPI_AENC_ClearRegistry();
    EXPECT_EQ(MPI_AENC_RegisterBuiltIn(), 0);
    EXPECT_EQ(MPI_AENC_RegisterBuiltIn(), encoding(MPP_ERR_FULL));
}

// Every operation of every codec with each of its arguments missing in turn. LPCM has no handle.
TEST_F(Adapter, AMissingArgumentIsNamedOnStandardOutputAndEndsTheProcess)
{
    const auto ends = [](const std::string& function, const char* argument, auto&& call) {
        EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), call()), testing::ExitedWithCode(255),
                    "^\nASSERT failed at:\n  >File name: mpp/code/mpi/audio/audio_voice_adp\n  >Function : " +
                        function + "\n  >Line No. : [0-9]+\n  >Condition: " + argument + " != NULL\n$");
    };
    const char *encode[] = {"pEncoder", "pstData", "pu8Outbuf", "pu32OutLen"},
               *decode[] = {"pDecoder", "pu8Inbuf", "ps32LeftByte", "pu16Outbuf", "pu32OutLen", "pu32Chns"};
    for (int32_t i = 0; i < 5; ++i) {
        ASSERT_EQ(MPI_AENC_GetEncoder(i, &encoder), 0);
        ASSERT_EQ(MPI_ADEC_GetDecoder(i, &decoder), 0);
        std::string name = kBuiltIn[i].name;
        for (char& c : name) c = char(toupper(c));
        int32_t word = 0; // stands for all that the operations would only look at later
        for (int null = i == 0; null < 4; ++null)
            ends("Encode" + name + "Frm", encode[null], [&, e = encoder.pfnEncodeFrm] {
                void* to[] = {&word, &word, &word, &word};
                to[null] = nullptr;
                e(to[0], static_cast<AUDIO_FRAME_S*>(to[1]), static_cast<uint8_t*>(to[2]),
                  static_cast<uint32_t*>(to[3]));
            });
        for (int null = i == 0; null < 6; ++null)
            ends("Decode" + name + "Frm", decode[null], [&, d = decoder.pfnDecodeFrm] {
                void* to[] = {&word, &word, &word, &word, &word, &word};
                to[null] = nullptr;
                d(to[0], static_cast<uint8_t**>(to[1]), static_cast<int32_t*>(to[2]),
                  static_cast<uint16_t*>(to[3]), static_cast<uint32_t*>(to[4]),
                  static_cast<uint32_t*>(to[5]));
            });
        if (i == 0) continue;
        ends("Open" + name + "Encoder", "ppEncoder", [&] { encoder.pfnOpenEncoder(&word, nullptr); });
        ends("Open" + name + "Encoder", "pEncoderAttr", [&] { encoder.pfnOpenEncoder(nullptr, &handle); });
        ends("Close" + name + "Encoder", "pEncoder", [&] { encoder.pfnCloseEncoder(nullptr); });
        ends("Open" + name + "Decoder", "ppDecoder", [&] { decoder.pfnOpenDecoder(&word, nullptr); });
        ends("Open" + name + "Decoder", "pDecoderAttr", [&] { decoder.pfnOpenDecoder(nullptr, &handle); });
        ends("Close" + name + "Decoder", "pDecoder", [&] { decoder.pfnCloseDecoder(nullptr); });
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
    } cases[] = {{PT_LPCM, 0, 160, false, 320},       {PT_G711A, 0, 160, false, 160},
                 {PT_G711U, 0, 960, false, 960},      {PT_ADPCM, 0, 160, false, 84},
                 {PT_G726, G726_16K, 320, false, 80}, {PT_ADPCM, ADPCM_IMA_BLOCK, 953, false, 480},
                 {PT_G726, G726_24K, 80, false, 30},  {PT_G726, G726_40K_AAL2, 480, false, 300},
                 {PT_G726, G726_32K, 160, false, 80}, {PT_LPCM, 0, 2048, true, 8192}};
    for (const auto& c : cases) {
        const Frame frame(c.points, c.stereo);
        EXPECT_EQ(encode(c.type, c.attribute, frame.record, c.bytes - 1), encoding(MPP_ERR_FULL)) << c.type;
        EXPECT_EQ(encode(c.type, c.attribute, frame.record, c.bytes), 0) << c.type;
        EXPECT_EQ(out.size(), c.bytes);
        if (!c.stereo) continue;
        EXPECT_EQ(int16_t(out[4] | out[5] << 8), frame.left[1]);
        EXPECT_EQ(int16_t(out[6] | out[7] << 8), frame.right[1]);
    }
}

TEST_F(Adapter, FramesThatACodecCannotCarryAreRefused)
{
    for (int32_t type : {PT_LPCM, PT_G711A, PT_G711U, PT_ADPCM, PT_G726}) {
        const std::pair<std::function<void(AUDIO_FRAME_S&)>, uint32_t> faults[] = {
            {[](AUDIO_FRAME_S& f) { f.u32BitWidth = AUDIO_BIT_WIDTH_8; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.u32Len = 0; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.u32Len = 321; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.u32Len = 4098; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.u32Len = 0xfffffffe; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.u32SoundMode = 2; }, MPP_ERR_PARAM},
            {[](AUDIO_FRAME_S& f) { f.pu8VirtAddr[0] = nullptr; }, MPP_ERR_NULL}};
        for (const auto& [spoil, number] : faults) {
            Frame frame(160);
            spoil(frame.record);
            EXPECT_EQ(encode(type, 0, frame.record), encoding(number)) << type;
        }
        EXPECT_EQ(encode(type, 0, Frame(160, true).record), type == PT_LPCM ? 0 : encoding(MPP_ERR_PARAM))
            << type;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(encode(PT_ADPCM, ADPCM_DVI4, Frame(161).record), encoding(MPP_ERR_PARAM));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("[Func]:EncodeADPCMFrm [Line]:"), 0u);
    EXPECT_NE(text.find(" [Info]:the u32PtNumPerFrm"), std::string::npos);
    EXPECT_EQ(encode(PT_ADPCM, ADPCM_DVI4, Frame(954).record), encoding(MPP_ERR_PARAM));
    EXPECT_EQ(encode(PT_G711A, 0, Frame(961).record), encoding(MPP_ERR_PARAM));
    EXPECT_EQ(encode(PT_G726, G726_24K, Frame(161).record), encoding(MPP_ERR_PARAM));
}

TEST_F(Adapter, DamagedAdpcmFramesArePassedOverAndImpossibleArgumentsRefused)
{
    uint32_t attribute = ADPCM_DVI4, length = 0, channels = 0;
    ASSERT_EQ(OpenADPCMDecoder(&attribute, &handle), 0);
    std::vector<uint8_t> octets(3000, 0xff);
    uint16_t pcm[AUDIO_MAX_POINTS * 2];
    const auto decode = [&](uint8_t* at, int32_t size, int32_t left) {
        int32_t bytes = size;
        uint8_t* position = at;
        const int32_t result = DecodeADPCMFrm(handle, &position, &bytes, pcm, &length, &channels);
        EXPECT_EQ(bytes, left);
        EXPECT_EQ(position, at + size - left);
        EXPECT_EQ(length, 0u);
        return result;
    };
    for (int32_t size : {84, 1029, 3000}) { // step index 255; and one octet more than 2,048 points
        octets[2] = size == 84 ? 255 : 0;
        EXPECT_EQ(decode(octets.data(), size, 0), decoding(MPP_ERR_PARAM));
    }
    EXPECT_EQ(decode(octets.data(), -1, -1), decoding(MPP_ERR_PARAM));
    EXPECT_EQ(decode(nullptr, 4, 4), decoding(MPP_ERR_NULL));
    EXPECT_EQ(decode(octets.data(), 4, 4), 0) << "a header is no frame yet";
    CloseADPCMDecoder(handle);

    void* none = nullptr;
    attribute = 8;
    EXPECT_EQ(OpenG726Encoder(&attribute, &none), encoding(MPP_ERR_PARAM));
    EXPECT_EQ(OpenG726Decoder(&attribute, &none), decoding(MPP_ERR_PARAM));
    EXPECT_EQ(OpenADPCMEncoder(&attribute, &none), encoding(MPP_ERR_PARAM));
    attribute = ADPCM_DVI4 | 161 << 16;
    EXPECT_EQ(OpenADPCMDecoder(&attribute, &none), decoding(MPP_ERR_PARAM));
    EXPECT_EQ(none, nullptr);
}

} // namespace
