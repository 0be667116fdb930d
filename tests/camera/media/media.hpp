// What the tests of the media platform share. They run inside the camera, where the state folder holds the
// microphone's and the speaker's file and the fault plan.
#pragma once

#include "base/mpp_error.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_ao.h"
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_vb.h"
#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"
#include "tests/support/wav.hpp"

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using std::string;

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kAo = MPP_ERROR(HI_ID_AO, 0), kVb = MPP_ERROR(HI_ID_VB, 0),
                  kSys = MPP_ERROR(HI_ID_SYS, 0);
constexpr int32_t kDev = 2; // the board's device with the codec chip

inline string state_file(const string& name) { return string(getenv("VCAM_STATE")) + "/" + name; }

// The fault plan of the calls that follow; one line a fault.
inline void faults(const string& plan)
{
    unlink(state_file("faults.state").c_str());
    write_file(state_file("faults"), plan);
}

inline void microphone(const Samples& samples, uint32_t rate, uint16_t channels = 1)
{
    write_file(state_file("mic.wav"), wav_bytes(samples, rate, channels));
}

inline Wav speaker(const string& file = "speaker.wav") { return parse_wav(read_file(state_file(file))); }

inline AIO_ATTR_S attributes(uint32_t rate = 8000, uint32_t points = 160, uint32_t sound = AUDIO_SOUND_MONO,
                             uint32_t frames = 30)
{
    return {rate, AUDIO_BIT_WIDTH_16, 0, sound, 1, frames, points, 2, 1};
}

inline MPP_CHN_S input(int32_t channel = 0) { return {HI_ID_AI, kDev, channel}; }
inline MPP_CHN_S output(int32_t channel = 0) { return {HI_ID_AO, kDev, channel}; }

inline void stop_platform()
{
    HI_MPI_SYS_Exit();
    HI_MPI_VB_Exit();
}

inline void start_platform(VB_CONF_S pools = {})
{
    stop_platform();
    MPP_SYS_CONF_S conf = {16};
    ASSERT_EQ(HI_MPI_VB_SetConf(&pools), 0);
    ASSERT_EQ(HI_MPI_VB_Init(), 0);
    ASSERT_EQ(HI_MPI_SYS_SetConf(&conf), 0);
    ASSERT_EQ(HI_MPI_SYS_Init(), 0);
}

// Standard error while it lives.
class Complaints {
public:
    Complaints() { testing::internal::CaptureStderr(); }
    ~Complaints() { testing::internal::GetCapturedStderr(); }
    // What was said since the last look.
    static string said()
    {
        string text = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return text;
    }
    // The same without a report's head, whose line number may be any; `function` is the one that reported.
    static string info(const string& function = "")
    {
        const string text = said(), head = "[Func]:" + function;
        EXPECT_EQ(text.substr(0, std::min(text.size(), head.size())), text.empty() ? "" : head);
        const size_t at = text.find(" [Info]:");
        return at == string::npos ? text : text.substr(at + 8);
    }
};

// The platform started, nothing wrong with its drivers.
struct Platform : testing::Test {
    Platform()
    {
        faults("");
        unlink(state_file("speaker.wav").c_str());
        start_platform();
    }
    ~Platform() override
    {
        faults("");
        stop_platform();
    }

    static void open_input(const AIO_ATTR_S& attr, int32_t channels = 1)
    {
        ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &attr), 0);
        ASSERT_EQ(HI_MPI_AI_Enable(kDev), 0);
        for (int32_t c = 0; c < channels; ++c) ASSERT_EQ(HI_MPI_AI_EnableChn(kDev, c), 0);
    }

    static void open_output(const AIO_ATTR_S& attr)
    {
        ASSERT_EQ(HI_MPI_AO_SetPubAttr(kDev, &attr), 0);
        ASSERT_EQ(HI_MPI_AO_Enable(kDev), 0);
        ASSERT_EQ(HI_MPI_AO_EnableChn(kDev, 0), 0);
    }

    // One side of a frame; nothing where it has no such side.
    static Samples samples_of(const AUDIO_FRAME_S& frame, int side = 0)
    {
        const auto* from = reinterpret_cast<const int16_t*>(frame.pu8VirtAddr[side]);
        return from ? Samples(from, from + frame.u32Len / 2) : Samples();
    }

    static int32_t get(AUDIO_FRAME_S& frame, AEC_FRAME_S* aec = nullptr)
    {
        return HI_MPI_AI_GetFrame(kDev, 0, &frame, aec, 1);
    }
    static int32_t release(AUDIO_FRAME_S& frame, AEC_FRAME_S* aec = nullptr)
    {
        return HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, aec);
    }

    // The next `count` frames.
    static Samples capture(int count, int32_t channel = 0)
    {
        Samples out;
        for (int i = 0; i < count; ++i) {
            AUDIO_FRAME_S frame = {};
            EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, channel, &frame, nullptr, 1), 0);
            const Samples got = samples_of(frame);
            out.insert(out.end(), got.begin(), got.end());
            EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, channel, &frame, nullptr), 0);
        }
        return out;
    }

    static AUDIO_FRAME_S frame_of(Samples& samples)
    {
        AUDIO_FRAME_S frame = {};
        frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
        frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(samples.data());
        frame.u32Len = uint32_t(samples.size() * 2);
        frame.s32PoolId = -1;
        return frame;
    }

    static int32_t send(Samples samples, uint32_t block = 1)
    {
        const AUDIO_FRAME_S frame = frame_of(samples);
        return HI_MPI_AO_SendFrame(kDev, 0, &frame, block);
    }
};

inline Samples part(const Samples& whole, size_t from, size_t count)
{
    Samples out(count);
    for (size_t i = 0; i < count && from + i < whole.size(); ++i) out[i] = whole[from + i];
    return out;
}
