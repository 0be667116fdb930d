// An audio input that an encoder channel finds bound to it, in place of the drivers. The program is linked
// with --wrap for the calls that encoder channels make below themselves; without a fake they go to the real
// ones.
#pragma once

#include "base/mpp_audio.h"
#include "base/mpp_error.h"

#include <atomic>
#include <functional>

namespace codec_test {

class FakeInput {
public:
    using Take = std::function<int32_t(AUDIO_FRAME_S&, uint32_t block)>;

    // `take` answers HI_MPI_AI_GetFrame.
    FakeInput(MPP_CHN_S source, Take take) : source_(source), take_(std::move(take)) {}
    ~FakeInput() { current = before_; }
    FakeInput(const FakeInput&) = delete;
    FakeInput& operator=(const FakeInput&) = delete;

    std::atomic<int> taken = 0; // frames that are out
    std::atomic<bool> bound = true;
    int32_t release_result = 0;

    int32_t look_up(const MPP_CHN_S& destination, MPP_CHN_S& source) const
    {
        if (!bound || destination.s32ModId != HI_ID_AENC) return MPP_ERROR(HI_ID_SYS, MPP_ERR_PARAM);
        source = source_;
        return 0;
    }
    int32_t take(int32_t device, int32_t channel, AUDIO_FRAME_S& frame, uint32_t block)
    {
        if (device != source_.s32DevId || channel != source_.s32ChnId)
            return MPP_ERROR(HI_ID_AI, MPP_ERR_CHANNEL);
        const int32_t result = take_(frame, block);
        if (result == 0) ++taken;
        return result;
    }
    int32_t release()
    {
        --taken;
        return release_result;
    }

    static inline std::atomic<FakeInput*> current = nullptr;

private:
    MPP_CHN_S source_;
    Take take_;
    FakeInput* before_ = current.exchange(this);
};

} // namespace codec_test
