// Audio input: resampling and noise reduction, on and off.
#include "mpi/src/mpi_ai.hpp"

#include "base/mpp_report.hpp"

using namespace zep;

namespace {

bool check_anr(Operation operation, int32_t device, const AIO_ATTR_S& attr)
{
    if (attr.u32PtNumPerFrm != 80 && attr.u32PtNumPerFrm != 160)
        mpp_log(operation.name, operation.line, "AiDev: %d, anr should be 80 or 160 point per frm!\n",
                device);
    else if (attr.enSamplerate != 8000 && attr.enSamplerate != 16000)
        mpp_log(operation.name, operation.line, "AiDev: %d, anr should be 8k or 16k sample rate!\n", device);
    else if (attr.enSoundmode == AUDIO_SOUND_STEREO)
        mpp_log(operation.name, operation.line, "anr don't support stereo!\n");
    else
        return true;
    return false;
}

} // namespace

void zep::explain_ai(Operation operation, Refusal refusal, int32_t, int32_t channel,
                     const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& current)
{
    const auto [name, line] = operation;
    switch (refusal) {
    case Refusal::other_attributes:
        return mpp_log(name, line, "Resmp has been enabled but the attributes not the same as before\n");
    case Refusal::points:
        return mpp_log(name, line, "AiChn %d resample u32InPointNum %d is larger than MAXFRAMESIZE %d!\n",
                       channel, int(attr.u32InPointNum), int(kAioMaxPoints));
    case Refusal::rate:
        return mpp_log(name, line, "enInSampleRate:%d is invalid\n", int(attr.enInSampleRate));
    case Refusal::kind: // the rate's message with the kind's number
        return mpp_log(name, line, "enInSampleRate:%d is invalid\n", int(attr.enReSampleType));
    case Refusal::device_points:
        return mpp_log(name, line, "resample PtNumPerFrm%d is not equal to AI's PtNumPerFrm%d!\n",
                       int(attr.u32InPointNum), int(current.u32PtNumPerFrm));
    case Refusal::device_rate:
        return mpp_log(name, line, "resample SampleRate %d is not equal to AI's SampleRate %d!\n",
                       int(attr.enInSampleRate), int(current.enSamplerate));
    case Refusal::stereo:
        return mpp_log(name, line, "resample don't support stereo!\n");
    case Refusal::no_device:
    case Refusal::no_memory:
        return;
    }
}

int32_t HI_MPI_AI_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstAttr) return ai_driver.coded(MPP_ERR_NULL);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    return ai_driver.enable_resampling(THIS_OPERATION, s32Dev, s32Chn, channel.resample, *pstAttr);
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
    if (ai_driver.request(THIS_OPERATION, slot_of(s32Dev, 0), AI_REQ_GET_PUB_ATTR, &attr) != 0) {
        MPP_LOG("AiDev: %d haven't set attr!\n", s32Dev);
        return ai_driver.coded(MPP_ERR_NO_CONFIG);
    }
    if (!check_anr(THIS_OPERATION, s32Dev, attr)) return ai_driver.coded(MPP_ERR_PARAM);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    if (channel.noise.state) return 0;
    ANR_STATE_S* reducer = ANR_Create(int(attr.enSamplerate), int(2 * attr.u32PtNumPerFrm));
    channel.noise = {reducer, attr.u32PtNumPerFrm, ANR_Process, ANR_Destroy};
    if (reducer) return 0;
    MPP_LOG("Ai[%d %d] init anr failed!\n", s32Dev, s32Chn);
    return ai_driver.coded(MPP_ERR_NO_MEMORY);
}

int32_t HI_MPI_AI_DisableAnr(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    AiChannel& channel = ai.channels[slot_of(s32Dev, s32Chn)];
    MutexLock locked(channel.lock);
    channel.noise.disable();
    return 0;
}
