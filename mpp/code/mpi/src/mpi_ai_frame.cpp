// Audio input: taking frames and giving them back.
#include "mpi/src/mpi_ai.hpp"

#include "base/mpp_report.hpp"
#include "mpi/src/mpi_vb.hpp"

#include <cstdlib>
#include <poll.h>

using namespace zep;

namespace {

constexpr uint32_t kMaxBytes = AUDIO_MAX_POINTS * sizeof(int16_t);
constexpr ModuleError coded{HI_ID_AI};

// A frame that was taken from the driver, on its way to the caller.
struct Taken {
    Operation operation;
    size_t slot;
    int32_t channel;
    AI_EXCHANGE_S record = {};
};

int32_t release(Operation operation, size_t slot, AI_EXCHANGE_S& record)
{
    return ai_driver.request(operation, slot, AI_REQ_RELEASE_FRAME, &record);
}

int32_t refuse(Taken& taken, int32_t code)
{
    release(taken.operation, taken.slot, taken.record);
    return code;
}

// Where the frame's blocks lie in this process. The length comes from the driver: a frame longer than any
// may be, or one outside its pool, is refused before a sample is touched.
int32_t translate(AUDIO_FRAME_S& frame)
{
    if (frame.u32Len > kMaxBytes) return coded(MPP_ERR_PARAM);
    uint32_t pool = uint32_t(frame.s32PoolId);
    if (int32_t failed = vb_translate(pool, frame.u32PhysAddr[0], frame.u32Len, &frame.pu8VirtAddr[0]))
        return failed;
    if (frame.u32SoundMode != AUDIO_SOUND_STEREO) return 0;
    return vb_translate(pool, frame.u32PhysAddr[1], frame.u32Len, &frame.pu8VirtAddr[1]);
}

int32_t translate_all(AI_EXCHANGE_S& record)
{
    if (int32_t failed = translate(record.stFrame)) return failed;
    return record.stAec.bValid == 1 ? translate(record.stAec.stFrame) : 0;
}

// 8-bit samples become 16-bit ones in their own block, from the end so that none is overwritten unread. The
// block must have room for twice the bytes.
int32_t widen(AUDIO_FRAME_S& frame)
{
    uint8_t* block = nullptr;
    if (frame.u32Len > kMaxBytes / 2) return coded(MPP_ERR_PARAM);
    if (int32_t failed =
            vb_translate(uint32_t(frame.s32PoolId), frame.u32PhysAddr[0], 2 * frame.u32Len, &block))
        return failed;
    auto* wide = reinterpret_cast<int16_t*>(block);
    for (uint32_t i = frame.u32Len; i-- > 0;) wide[i] = int16_t(uint16_t(block[i] << 8));
    frame.u32Len *= 2;
    frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
    return 0;
}

int32_t reduce_noise(AiChannel& channel, AUDIO_FRAME_S& frame)
{
    if (frame.u32BitWidth == AUDIO_BIT_WIDTH_8)
        if (int32_t failed = widen(frame)) return failed;
    // The state was made for one length; another one would be read past its end.
    if (frame.u32Len != channel.noise.points * sizeof(int16_t)) return coded(MPP_ERR_PARAM);
    int failed = channel.noise.process(channel.noise.state, reinterpret_cast<int16_t*>(frame.pu8VirtAddr[0]));
    return failed ? coded(MPP_ERR_PARAM) : 0;
}

// The channel's rate into a buffer of the library's; the driver's frame goes back at once.
int32_t change_rate(Taken& taken, const ResampleStage& stage)
{
    const auto [name, line] = taken.operation;
    AUDIO_FRAME_S& frame = taken.record.stFrame;
    const uint32_t points = frame.u32Len / uint32_t(sizeof(int16_t));
    const uint32_t out_points = scale_by_kind(stage.attr.enReSampleType, points);
    auto* out = static_cast<int16_t*>(malloc(out_points * sizeof(int16_t) + 1));
    if (!out) {
        mpp_log(name, line, "s32ChnId: %d, malloc resample memory failed!\n", taken.channel);
        return refuse(taken, coded(MPP_ERR_NO_MEMORY));
    }
    stage.process(stage.handle, reinterpret_cast<int16_t*>(frame.pu8VirtAddr[0]), int(points), out);
    const int32_t failed = release(taken.operation, taken.slot, taken.record);
    mpp_assert(!failed, "mpp/code/mpi/src/mpi_ai", name, line, "HI_SUCCESS == s32Ret");
    frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(out);
    frame.u32Len = out_points * uint32_t(sizeof(int16_t));
    frame.s32PoolId = int32_t(kNoPool); // the samples are the library's own
    if (taken.record.stAec.bValid != 1) return 0;
    mpp_log(name, line, "can't do resample and aec at the same time!\n");
    taken.record.stAec.bValid = 0;
    return 0;
}

// Noise reduction, then resampling, as they are enabled.
int32_t process(Taken& taken)
{
    AiChannel& channel = ai.channels[taken.slot];
    MutexLock locked(channel.lock);
    if (!channel.noise.state && !channel.resample.enabled) return 0;
    // The device was mono when its stages were enabled. They work on the left block alone: the new length
    // would be wrong for the right one, and reading that far would leave it.
    if (taken.record.stFrame.u32SoundMode == AUDIO_SOUND_STEREO) return refuse(taken, coded(MPP_ERR_PARAM));
    if (channel.noise.state) {
        if (int32_t failed = reduce_noise(channel, taken.record.stFrame)) {
            mpp_log(taken.operation.name, taken.operation.line, "s32ChnId :%d process anr failed!\n",
                    taken.channel);
            return refuse(taken, failed);
        }
    }
    return channel.resample.enabled ? change_rate(taken, channel.resample) : 0;
}

} // namespace

int32_t HI_MPI_AI_GetFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec,
                           uint32_t bBlock)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstFrm) return coded(MPP_ERR_NULL);
    if (bBlock > 1) {
        MPP_LOG("illegal param: bBlock(%d)!\n", int(bBlock));
        return coded(MPP_ERR_PARAM);
    }
    const size_t slot = slot_of(s32Dev, s32Chn);
    // Opened before the poll: a descriptor of -1 would say "no frame" for ever.
    int fd = ai_driver.descriptor(THIS_OPERATION, slot);
    if (fd < 0) return coded(MPP_ERR_REFUSED);
    if (bBlock == 0 && !ready_now(fd, POLLIN)) return coded(MPP_ERR_EMPTY);

    Taken taken = {THIS_OPERATION, slot, s32Chn};
    if (int32_t failed = ai_driver.request(THIS_OPERATION, slot, AI_REQ_GET_FRAME, &taken.record))
        return failed;
    if (int32_t failed = translate_all(taken.record)) return refuse(taken, failed);
    if (int32_t failed = process(taken)) return failed;
    *pstFrm = taken.record.stFrame;
    if (pstAec && taken.record.stAec.bValid == 1) *pstAec = taken.record.stAec;
    return 0;
}

int32_t HI_MPI_AI_ReleaseFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstFrm) return coded(MPP_ERR_NULL);
    if (uint32_t(pstFrm->s32PoolId) == kNoPool) {
        free(pstFrm->pu8VirtAddr[0]);
        pstFrm->pu8VirtAddr[0] = nullptr; // a second release finds nothing to free
        return 0;
    }
    AI_EXCHANGE_S record = {};
    record.stFrame = *pstFrm;
    if (pstAec) record.stAec = *pstAec;
    return release(THIS_OPERATION, slot_of(s32Dev, s32Chn), record);
}
