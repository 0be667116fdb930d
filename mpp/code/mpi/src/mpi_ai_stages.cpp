// Audio input: resampling and noise reduction, on and off.
#include "mpi/src/mpi_ai.hpp"

#include "base/mpp_report.hpp"

using namespace zep;

namespace {

// What can be said without the device.
bool check_record(const char* function, int line, int32_t channel, const AIO_RESAMPLE_ATTR_S& attr)
{
    if (attr.u32InPointNum > kAioMaxPoints) {
        mpp_log(function, line, "AiChn %d resample u32InPointNum %d is larger than MAXFRAMESIZE %d!\n",
                channel, int(attr.u32InPointNum), int(kAioMaxPoints));
        return false;
    }
    if (attr.enInSampleRate < kAioMinRate || attr.enInSampleRate > kAioMaxRate) {
        mpp_log(function, line, "enInSampleRate:%d is invalid\n", int(attr.enInSampleRate));
        return false;
    }
    if (valid_kind(attr.enReSampleType)) return true;
    // The rate's message with the kind's value: both refusals are told apart by the number alone.
    mpp_log(function, line, "enInSampleRate:%d is invalid\n", int(attr.enReSampleType));
    return false;
}

// The input side must be the device's.
bool check_device(const char* function, int line, const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& device)
{
    if (attr.u32InPointNum != device.u32PtNumPerFrm)
        mpp_log(function, line, "resample PtNumPerFrm%d is not equal to AI's PtNumPerFrm%d!\n",
                int(attr.u32InPointNum), int(device.u32PtNumPerFrm));
    else if (attr.enInSampleRate != device.enSamplerate)
        mpp_log(function, line, "resample SampleRate %d is not equal to AI's SampleRate %d!\n",
                int(attr.enInSampleRate), int(device.enSamplerate));
    else if (device.enSoundmode == AUDIO_SOUND_STEREO)
        mpp_log(function, line, "resample don't support stereo!\n");
    else
        return true;
    return false;
}

bool check_anr(const char* function, int line, int32_t device, const AIO_ATTR_S& attr)
{
    if (attr.u32PtNumPerFrm != 80 && attr.u32PtNumPerFrm != 160)
        mpp_log(function, line, "AiDev: %d, anr should be 80 or 160 point per frm!\n", device);
    else if (attr.enSamplerate != 8000 && attr.enSamplerate != 16000)
        mpp_log(function, line, "AiDev: %d, anr should be 8k or 16k sample rate!\n", device);
    else if (attr.enSoundmode == AUDIO_SOUND_STEREO)
        mpp_log(function, line, "anr don't support stereo!\n");
    else
        return true;
    return false;
}

bool device_attributes(int32_t device, AIO_ATTR_S* attr)
{
    return ai_port.request(slot_of(device, 0), AI_REQ_GET_PUB_ATTR, attr) == 0;
}

} // namespace

int32_t HI_MPI_AI_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstAttr) return ai_error(MPP_ERR_NULL);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    if (channel.resample.enabled) {
        if (channel.resample.same(*pstAttr)) return 0;
        MPP_LOG("Resmp has been enabled but the attributes not the same as before\n");
        return ai_error(MPP_ERR_NOT_PERM);
    }
    if (!check_record(__func__, __LINE__, s32Chn, *pstAttr)) return ai_error(MPP_ERR_PARAM);
    AIO_ATTR_S device = {};
    if (!device_attributes(s32Dev, &device)) return ai_error(MPP_ERR_NO_CONFIG);
    if (!check_device(__func__, __LINE__, *pstAttr, device)) return ai_error(MPP_ERR_PARAM);
    return channel.resample.enable(*pstAttr) ? 0 : ai_error(MPP_ERR_NO_MEMORY);
}

int32_t HI_MPI_AI_DisableReSmp(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    channel.resample.disable();
    return 0;
}

int32_t HI_MPI_AI_EnableAnr(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    AIO_ATTR_S attr = {};
    if (!device_attributes(s32Dev, &attr)) {
        MPP_LOG("AiDev: %d haven't set attr!\n", s32Dev);
        return ai_error(MPP_ERR_NO_CONFIG);
    }
    if (!check_anr(__func__, __LINE__, s32Dev, attr)) return ai_error(MPP_ERR_PARAM);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    if (channel.noise.state) return 0;
    ANR_STATE_S* reducer = ANR_Create(int(attr.enSamplerate), int(2 * attr.u32PtNumPerFrm));
    channel.noise = {reducer, attr.u32PtNumPerFrm, ANR_Process, ANR_Destroy};
    if (reducer) return 0;
    MPP_LOG("Ai[%d %d] init anr failed!\n", s32Dev, s32Chn);
    return ai_error(MPP_ERR_NO_MEMORY);
}

int32_t HI_MPI_AI_DisableAnr(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    channel.noise.disable();
    return 0;
}
