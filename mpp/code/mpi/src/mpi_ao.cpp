// Audio output: devices and channels.
#include "mpi/src/mpi_ao.hpp"

#include "base/mpp_report.hpp"
#include "mkp/bind/sys_bind.h"
#include "mpi/src/mpi_modules.hpp"

namespace zep {

constinit AoState ao;
constinit AioPort ao_port = {HI_ID_AO, "ao", AO_DEVICE, AO_REQ_BIND_SLOT, true, {}};

} // namespace zep

using namespace zep;

namespace {

void clear_channels()
{
    for (AoChannel& channel : ao.channels) {
        MutexLock locked(channel.lock);
        channel.resample.disable();
    }
}

} // namespace

int32_t MPI_AO_Init(void)
{
    if (ao.initialised.exchange(true)) return 0;
    const SYS_BIND_RECEIVER_S receiver = {HI_ID_AO, AIO_MAX_DEVICES, AIO_MAX_CHANNELS, MPI_AO_ReceiveFrm};
    int32_t s32Ret = SYS_BIND_RegisterReceiver(&receiver);
    enum { HI_SUCCESS = 0 };
    AO_ASSERT(HI_SUCCESS == s32Ret);
    clear_channels();
    return 0;
}

int32_t MPI_AO_DeInit(void)
{
    if (!ao.initialised.exchange(false)) return 0;
    SYS_BIND_UnRegisterReceiver(HI_ID_AO);
    clear_channels();
    return 0;
}

int32_t HI_MPI_AO_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr)
{
    return ao_port.exchange(__func__, __LINE__, s32Dev, AO_REQ_SET_PUB_ATTR,
                            const_cast<AIO_ATTR_S*>(pstAttr));
}

int32_t HI_MPI_AO_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr)
{
    return ao_port.exchange(__func__, __LINE__, s32Dev, AO_REQ_GET_PUB_ATTR, pstAttr);
}

int32_t HI_MPI_AO_Enable(int32_t s32Dev)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, 0, AO_REQ_ENABLE);
}
int32_t HI_MPI_AO_Disable(int32_t s32Dev)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, 0, AO_REQ_DISABLE);
}

int32_t HI_MPI_AO_EnableChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, s32Chn, AO_REQ_ENABLE_CHN);
}

int32_t HI_MPI_AO_DisableChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    HI_MPI_AO_DisableReSmp(s32Dev, s32Chn);
    return ao_port.request(slot_of(s32Dev, s32Chn), AO_REQ_DISABLE_CHN);
}

int32_t HI_MPI_AO_PauseChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, s32Chn, AO_REQ_PAUSE_CHN);
}

int32_t HI_MPI_AO_ResumeChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, s32Chn, AO_REQ_RESUME_CHN);
}

int32_t HI_MPI_AO_ClearChnBuf(int32_t s32Dev, int32_t s32Chn)
{
    return ao_port.operate(__func__, __LINE__, s32Dev, s32Chn, AO_REQ_CLEAR_BUF);
}

int32_t HI_MPI_AO_GetFd(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_port.descriptor_or_code(slot_of(s32Dev, s32Chn));
}

int32_t HI_MPI_AO_GetFileHandle(int32_t s32Slot)
{
    if (uint32_t(s32Slot) >= AIO_SLOTS) return ao_port.refuse_channel(__func__, __LINE__, s32Slot);
    return ao_port.descriptor_or_code(size_t(s32Slot));
}
