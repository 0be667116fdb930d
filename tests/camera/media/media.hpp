// What the tests of the media platform share. They run inside the camera, where the state folder holds the
// microphone's and the speaker's file and the fault plan.
#pragma once

#include "base/mpp_error.h"
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

inline Wav speaker() { return parse_wav(read_file(state_file("speaker.wav"))); }

inline AIO_ATTR_S attributes(uint32_t rate = 8000, uint32_t points = 160, uint32_t sound = AUDIO_SOUND_MONO)
{
    return {rate, AUDIO_BIT_WIDTH_16, 0, sound, 1, 30, points, 2, 1};
}

constexpr int32_t kDev = 2; // the board's device with the codec chip

inline void stop_platform()
{
    HI_MPI_SYS_Exit();
    HI_MPI_VB_Exit();
}

inline void start_platform()
{
    stop_platform();
    VB_CONF_S pools = {};
    MPP_SYS_CONF_S conf = {16};
    ASSERT_EQ(HI_MPI_VB_SetConf(&pools), 0);
    ASSERT_EQ(HI_MPI_VB_Init(), 0);
    ASSERT_EQ(HI_MPI_SYS_SetConf(&conf), 0);
    ASSERT_EQ(HI_MPI_SYS_Init(), 0);
}

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

    static const int16_t* samples_of(const AUDIO_FRAME_S& frame, int side = 0)
    {
        return reinterpret_cast<const int16_t*>(frame.pu8VirtAddr[side]);
    }

    // One side of the next `count` frames.
    static Samples capture(int count, int32_t channel = 0, int side = 0)
    {
        Samples out;
        for (int i = 0; i < count; ++i) {
            AUDIO_FRAME_S frame = {};
            EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, channel, &frame, nullptr, 1), 0);
            if (!frame.pu8VirtAddr[side]) return out;
            out.insert(out.end(), samples_of(frame, side), samples_of(frame, side) + frame.u32Len / 2);
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

    static int32_t send(const Samples& samples, uint32_t block = 1)
    {
        Samples copy = samples;
        const AUDIO_FRAME_S frame = frame_of(copy);
        return HI_MPI_AO_SendFrame(kDev, 0, &frame, block);
    }
};

inline Samples part(const Samples& whole, size_t from, size_t count)
{
    Samples out(count);
    for (size_t i = 0; i < count && from + i < whole.size(); ++i) out[i] = whole[from + i];
    return out;
}
