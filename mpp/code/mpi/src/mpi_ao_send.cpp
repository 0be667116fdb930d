// Audio output: resampling and sending.
#include "mpi/src/mpi_ao.hpp"

#include "mkp/bind/sys_bind.h"

#include <poll.h>

using namespace zep;

namespace {

constexpr uint32_t kMaxBytes = AUDIO_MAX_POINTS * sizeof(int16_t);
constexpr uint32_t kMaxRatio = 6;
constexpr ModuleError coded{HI_ID_AO};

// The steps of sending one frame: its check, the wait for room, its conversion, the driver.

int32_t check_frame(Operation operation, const AUDIO_FRAME_S* frame, uint32_t block)
{
    if (!frame) return coded(MPP_ERR_NULL);
    if (block > 1) {
        mpp_log(operation.name, operation.line, "invalid param: bBlock %d!\n", int(block));
        return coded(MPP_ERR_PARAM);
    }
    // A longer frame would overrun the buffer of the conversion and the driver's.
    return frame->u32Len > kMaxBytes ? coded(MPP_ERR_PARAM) : 0;
}

// Without `block` a driver without room refuses. The device is opened before the poll: a descriptor of -1
// would look full for ever.
int32_t find_room(Operation operation, size_t slot, uint32_t block)
{
    const int fd = ao_driver.descriptor(operation, slot);
    if (fd < 0) return coded(MPP_ERR_REFUSED);
    return block == 0 && !ready_now(fd, POLLOUT) ? coded(MPP_ERR_FULL) : 0;
}

// Into `converted`, when the channel resamples.
int32_t convert(Operation operation, AoChannel& channel, AUDIO_FRAME_S& frame, int16_t* converted)
{
    MutexLock locked(channel.lock);
    const ResampleStage& stage = channel.resample;
    if (!stage.enabled || !valid_kind(stage.attr.enReSampleType)) return 0;
    mpp_assert(stage.handle, kAoSource, operation.name, operation.line, "channel.resample.handle != nullptr");
    const uint32_t points = frame.u32Len / uint32_t(sizeof(int16_t));
    const auto* samples = reinterpret_cast<const int16_t*>(frame.pu8VirtAddr[0]);
    if (!samples) return coded(MPP_ERR_NULL);
    stage.process(stage.handle, samples, int(points), converted);
    frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(converted);
    frame.u32Len = scale_by_kind(stage.attr.enReSampleType, points) * uint32_t(sizeof(int16_t));
    return 0;
}

int32_t send_frame(Operation operation, size_t slot, AUDIO_FRAME_S& frame)
{
    const int32_t result = ao_driver.request(operation, slot, AO_REQ_SEND_FRAME, &frame);
    return result < 0 ? result : 0;
}

} // namespace

// The check of the resampling has a published name of its own.
void zep::explain_ao(Operation operation, Refusal refusal, int32_t device, int32_t channel,
                     const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S&)
{
    constexpr char kCheck[] = "MPI_AO_CheckReSmp";
    const auto [name, line] = operation;
    switch (refusal) {
    case Refusal::other_attributes:
        return mpp_log(name, line, "Resmp has been enable but the attributes not the same as before\n");
    case Refusal::points:
        return mpp_log(kCheck, line, "AoChn %d resample u32InPointNum %d is larger than MAXFRAMESIZE %d!\n",
                       channel, int(attr.u32InPointNum), int(kAioMaxPoints));
    case Refusal::rate:
        return mpp_log(kCheck, line, "AoChn %d resample rate is illegal!\n", channel);
    case Refusal::kind:
        return mpp_log(kCheck, line, "AO's enReSampleType %d is illegal!\n", int(attr.enReSampleType));
    case Refusal::no_device:
        return mpp_log(kCheck, line, "can't get aodev%d's attribute!\n", device);
    case Refusal::device_points:
        return mpp_log(kCheck, line, "AO's PtNumPerFrm is not equal to the result of resample!\n");
    case Refusal::device_rate:
        return mpp_log(kCheck, line, "AO's samplerate is not equal to the result of resample!\n");
    case Refusal::stereo:
        return mpp_log(kCheck, line, "resample don't support stereo!\n");
    case Refusal::no_memory:
        return mpp_log(name, line, "ResamplerCreate failed!\n");
    }
}

int32_t HI_MPI_AO_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr)
{
    AO_CHECK(s32Dev, s32Chn);
    if (!pstAttr) return coded(MPP_ERR_NULL);
    AoChannel& channel = ao.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    return ao_driver.enable_resampling(THIS_OPERATION, s32Dev, s32Chn, channel.resample, *pstAttr);
}

int32_t HI_MPI_AO_DisableReSmp(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    AoChannel& channel = ao.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    channel.resample.disable();
    return 0;
}

int32_t HI_MPI_AO_SendFrame(int32_t s32Dev, int32_t s32Chn, const AUDIO_FRAME_S* pstFrm, uint32_t bBlock)
{
    AO_CHECK(s32Dev, s32Chn);
    const size_t slot = slot_of(s32Dev, s32Chn);
    if (int32_t refused = check_frame(THIS_OPERATION, pstFrm, bBlock)) return refused;
    if (int32_t refused = find_room(THIS_OPERATION, slot, bBlock)) return refused;
    AUDIO_FRAME_S frame = *pstFrm;
    int16_t converted[AUDIO_MAX_POINTS * kMaxRatio];
    if (int32_t refused = convert(THIS_OPERATION, ao.channels[slot], frame, converted)) return refused;
    return send_frame(THIS_OPERATION, slot, frame);
}

int32_t MPI_AO_ReceiveFrm(int32_t s32Dev, int32_t s32Chn, int32_t enDataType, void* pData)
{
    mpp_assert(enDataType == MPP_DATA_AUDIO_FRAME, kAoSource, __func__, __LINE__,
               "MPP_DATA_AUDIO_FRAME == enDataType");
    mpp_assert(pData, kAoSource, __func__, __LINE__, "NULL != pData");
    return HI_MPI_AO_SendFrame(s32Dev, s32Chn, static_cast<const AUDIO_FRAME_S*>(pData), 1);
}
