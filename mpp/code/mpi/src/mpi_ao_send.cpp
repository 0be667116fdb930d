// Audio output: resampling and sending.
#include "mpi/src/mpi_ao.hpp"

#include "base/mpp_report.hpp"
#include "mkp/bind/sys_bind.h"

#include <poll.h>

using namespace zep;

namespace {

constexpr uint32_t kMaxBytes = AUDIO_MAX_POINTS * sizeof(int16_t);
constexpr uint32_t kMaxRatio = 6;

bool check_record(const char* function, int line, int32_t channel, const AIO_RESAMPLE_ATTR_S& attr)
{
    if (attr.u32InPointNum > kAioMaxPoints)
        mpp_log(function, line, "AoChn %d resample u32InPointNum %d is larger than MAXFRAMESIZE %d!\n",
                channel, int(attr.u32InPointNum), int(kAioMaxPoints));
    else if (attr.enInSampleRate < kAioMinRate || attr.enInSampleRate > kAioMaxRate)
        mpp_log(function, line, "AoChn %d resample rate is illegal!\n", channel);
    else if (!valid_kind(attr.enReSampleType))
        mpp_log(function, line, "AO's enReSampleType %d is illegal!\n", int(attr.enReSampleType));
    else
        return true;
    return false;
}

// What comes out must be the device's; audio input compares what goes in.
bool check_device(const char* function, int line, const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& device)
{
    if (device.u32PtNumPerFrm != scale_by_kind(attr.enReSampleType, attr.u32InPointNum))
        mpp_log(function, line, "AO's PtNumPerFrm is not equal to the result of resample!\n");
    else if (device.enSamplerate != scale_by_kind(attr.enReSampleType, attr.enInSampleRate))
        mpp_log(function, line, "AO's samplerate is not equal to the result of resample!\n");
    else if (device.enSoundmode == AUDIO_SOUND_STEREO)
        mpp_log(function, line, "resample don't support stereo!\n");
    else
        return true;
    return false;
}

} // namespace

// Named as its messages have it.
static int32_t MPI_AO_CheckReSmp(int32_t device, int32_t channel, const AIO_RESAMPLE_ATTR_S& attr)
{
    if (!check_record(__func__, __LINE__, channel, attr)) return ao_error(MPP_ERR_PARAM);
    AIO_ATTR_S current = {};
    if (ao_port.request(slot_of(device, 0), AO_REQ_GET_PUB_ATTR, &current) != 0) {
        MPP_LOG("can't get aodev%d's attribute!\n", device);
        return ao_error(MPP_ERR_NO_CONFIG);
    }
    return check_device(__func__, __LINE__, attr, current) ? 0 : ao_error(MPP_ERR_PARAM);
}

int32_t HI_MPI_AO_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr)
{
    AO_CHECK(s32Dev, s32Chn);
    if (!pstAttr) return ao_error(MPP_ERR_NULL);
    AoChannel& channel = ao.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    if (channel.resample.enabled) {
        if (channel.resample.same(*pstAttr)) return 0;
        MPP_LOG("Resmp has been enable but the attributes not the same as before\n");
        return ao_error(MPP_ERR_NOT_PERM);
    }
    if (int32_t refused = MPI_AO_CheckReSmp(s32Dev, s32Chn, *pstAttr)) return refused;
    if (channel.resample.enable(*pstAttr)) return 0;
    MPP_LOG("ResamplerCreate failed!\n");
    return ao_error(MPP_ERR_NO_MEMORY);
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
    if (!pstFrm) return ao_error(MPP_ERR_NULL);
    if (bBlock > 1) {
        MPP_LOG("invalid param: bBlock %d!\n", int(bBlock));
        return ao_error(MPP_ERR_PARAM);
    }
    // A longer frame would overrun the buffer below and the driver's.
    if (pstFrm->u32Len > kMaxBytes) return ao_error(MPP_ERR_PARAM);
    const size_t slot = slot_of(s32Dev, s32Chn);
    // Opened before the poll: a descriptor of -1 would say "full" for ever.
    int fd = ao_port.descriptor(slot);
    if (fd < 0) return ao_error(MPP_ERR_REFUSED);
    if (bBlock == 0 && !ready_now(fd, POLLOUT)) return ao_error(MPP_ERR_FULL);

    AUDIO_FRAME_S frame = *pstFrm;
    int16_t resampled[AUDIO_MAX_POINTS * kMaxRatio];
    AoChannel& channel = ao.channels[slot];
    {
        MutexLock locked(channel.lock);
        if (channel.resample.enabled && valid_kind(channel.resample.attr.enReSampleType)) {
            AO_ASSERT(channel.resample.handle != nullptr);
            const uint32_t kind = channel.resample.attr.enReSampleType;
            const uint32_t points = frame.u32Len / uint32_t(sizeof(int16_t));
            auto* samples = reinterpret_cast<const int16_t*>(frame.pu8VirtAddr[0]);
            if (!samples) return ao_error(MPP_ERR_NULL);
            channel.resample.process(channel.resample.handle, samples, int(points), resampled);
            frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(resampled);
            frame.u32Len = scale_by_kind(kind, points) * uint32_t(sizeof(int16_t));
        }
    }
    int32_t result = ao_port.request(slot, AO_REQ_SEND_FRAME, &frame);
    return result < 0 ? result : 0;
}

int32_t MPI_AO_ReceiveFrm(int32_t s32Dev, int32_t s32Chn, int32_t enDataType, void* pData)
{
    AO_ASSERT(MPP_DATA_AUDIO_FRAME == enDataType);
    AO_ASSERT(NULL != pData);
    return HI_MPI_AO_SendFrame(s32Dev, s32Chn, static_cast<const AUDIO_FRAME_S*>(pData), 1);
}
