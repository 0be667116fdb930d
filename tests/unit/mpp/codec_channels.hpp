// What the tests of encoder and decoder channels share.
#pragma once

#include "base/mpp_codec.h"
#include "base/mpp_error.h"
#include "mkp/bind/sys_bind.h"
#include "mpi/audio/audio_voice_adp.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_codec_registry.h"
#include "mpi/src/mpi_sys.hpp"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace codec_test {

constexpr int32_t aenc(uint32_t number) { return MPP_ERROR(HI_ID_AENC, number); }
constexpr int32_t adec(uint32_t number) { return MPP_ERROR(HI_ID_ADEC, number); }

// A mono frame over samples that stay the caller's.
inline AUDIO_FRAME_S frame_of(std::vector<int16_t>& samples, uint64_t stamp = 0)
{
    AUDIO_FRAME_S frame = {};
    frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
    frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(samples.data());
    frame.au32Pass[0] = uint32_t(stamp);
    frame.au32Pass[1] = uint32_t(stamp >> 32);
    frame.u32Len = uint32_t(samples.size() * sizeof(int16_t));
    return frame;
}

// The audio input that every encoder channel finds bound to it, in place of the drivers: the program is linked with
// --wrap for the calls that encoder channels make below themselves.
struct BoundInput {
    std::function<int32_t(AUDIO_FRAME_S&, uint32_t block)>
        take;                 // answers HI_MPI_AI_GetFrame; unbound without it
    std::atomic<int> out = 0; // frames taken and not released
};
inline BoundInput bound_input;

// Encoder and decoder modules started, and what bound decoder channels send caught by a receiver "AO".
class Channels : public testing::Test {
protected:
    Channels()
    {
        EXPECT_EQ(MPI_AENC_Init(), 0);
        EXPECT_EQ(MPI_ADEC_Init(), 0);
        const SYS_BIND_RECEIVER_S receiver = {HI_ID_AO, 3, 16, receive};
        EXPECT_EQ(SYS_BIND_RegisterReceiver(&receiver), 0);
        played.clear();
        on_frame = nullptr;
        refusal = 0;
    }
    ~Channels() override
    {
        bound_input.take = nullptr;
        EXPECT_EQ(MPI_AENC_DeInit(), 0);
        EXPECT_EQ(MPI_ADEC_DeInit(), 0);
        EXPECT_EQ(SYS_BIND_DeInit(), 0);
    }

    static int32_t create_aenc(int32_t channel, int32_t type, uint32_t size = 30, uint32_t word = 0)
    {
        const AENC_CHN_ATTR_S attr = {type, size, &word};
        return HI_MPI_AENC_CreateChn(channel, &attr);
    }
    static int32_t create_adec(int32_t channel, int32_t type, uint32_t mode = ADEC_MODE_PACK,
                               uint32_t word = 0)
    {
        const ADEC_CHN_ATTR_S attr = {type, 5, mode, &word};
        return HI_MPI_ADEC_CreateChn(channel, &attr);
    }
    static int32_t bind(int32_t channel)
    {
        const MPP_CHN_S source = {HI_ID_ADEC, 0, channel}, output = {HI_ID_AO, 0, 0};
        return SYS_Bind(&source, &output);
    }
    // A decoder channel of its own for what follows, bound to the output.
    static void rebuild_adec(int32_t type, uint32_t mode, uint32_t word = 0)
    {
        const MPP_CHN_S output = {HI_ID_AO, 0, 0};
        HI_MPI_ADEC_DestroyChn(0);
        EXPECT_EQ(SYS_UnBind(&output), 0);
        ASSERT_EQ(create_adec(0, type, mode, word), 0);
        ASSERT_EQ(bind(0), 0);
        played.clear();
    }
    static int32_t send(const std::vector<uint8_t>& bytes, uint32_t block = 1)
    {
        AENC_STREAM_HEADER_S stream = {};
        stream.pu8Data = const_cast<uint8_t*>(bytes.data()); // the decoder only reads
        stream.u32Len = uint32_t(bytes.size());
        return HI_MPI_ADEC_SendStream(0, &stream, block);
    }
    static ADEC_CHN_STAT_S adec_stat(int32_t channel = 0)
    {
        ADEC_CHN_STAT_S stat = {};
        EXPECT_EQ(HI_MPI_ADEC_GetChnStat(channel, &stat), 0);
        return stat;
    }
    static AENC_CHN_STAT_S aenc_stat(int32_t channel = 0)
    {
        AENC_CHN_STAT_S stat = {};
        EXPECT_EQ(HI_MPI_AENC_GetChnStat(channel, &stat), 0);
        return stat;
    }
    // Everything that was played, as one signal.
    static std::vector<int16_t> signal_played()
    {
        std::vector<int16_t> all;
        for (const auto& frame : played) all.insert(all.end(), frame.begin(), frame.end());
        return all;
    }

    static inline std::vector<std::vector<int16_t>> played; // samples of each frame
    static inline std::function<void(const AUDIO_FRAME_S&)> on_frame;
    static inline int32_t refusal = 0; // what the receiver answers

private:
    static int32_t receive(int32_t, int32_t, int32_t, void* data)
    {
        const auto& frame = *static_cast<const AUDIO_FRAME_S*>(data);
        if (on_frame) on_frame(frame);
        const auto* samples = reinterpret_cast<const int16_t*>(frame.pu8VirtAddr[0]);
        std::lock_guard lock(mutex_);
        played.emplace_back(samples, samples + frame.u32Len / 2);
        return refusal;
    }
    static inline std::mutex mutex_;
};

} // namespace codec_test
