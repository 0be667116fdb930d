// Audio output: devices and channels.
#include "mpi/src/mpi_ao.hpp"

#include "mkp/bind/sys_bind.h"
#include "mpi/src/mpi_sys.hpp"

namespace zep {

constinit AoState ao;
constinit AioDriver ao_driver = {
    .coded = {HI_ID_AO},
    .name = "ao",
    .path = AO_DEVICE,
    .bind_slot = AO_REQ_BIND_SLOT,
    .get_pub_attr = AO_REQ_GET_PUB_ATTR,
    .must_be_character = true,
    .device_is_output = true,
    .explain = explain_ao,
};

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
    const int32_t refused = SYS_BIND_RegisterReceiver(&receiver);
    mpp_assert(!refused, kAoSource, __func__, __LINE__, "HI_SUCCESS == s32Ret");
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
    return ao_driver.exchange(THIS_OPERATION, s32Dev, AO_REQ_SET_PUB_ATTR, const_cast<AIO_ATTR_S*>(pstAttr));
}

int32_t HI_MPI_AO_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr)
{
    return ao_driver.exchange(THIS_OPERATION, s32Dev, AO_REQ_GET_PUB_ATTR, pstAttr);
}

int32_t HI_MPI_AO_Enable(int32_t s32Dev)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, 0, AO_REQ_ENABLE);
}
int32_t HI_MPI_AO_Disable(int32_t s32Dev)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, 0, AO_REQ_DISABLE);
}

int32_t HI_MPI_AO_EnableChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AO_REQ_ENABLE_CHN);
}

int32_t HI_MPI_AO_DisableChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    HI_MPI_AO_DisableReSmp(s32Dev, s32Chn);
    return ao_driver.request(THIS_OPERATION, slot_of(s32Dev, s32Chn), AO_REQ_DISABLE_CHN);
}

int32_t HI_MPI_AO_PauseChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AO_REQ_PAUSE_CHN);
}

int32_t HI_MPI_AO_ResumeChn(int32_t s32Dev, int32_t s32Chn)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AO_REQ_RESUME_CHN);
}

int32_t HI_MPI_AO_ClearChnBuf(int32_t s32Dev, int32_t s32Chn)
{
    return ao_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AO_REQ_CLEAR_BUF);
}

int32_t HI_MPI_AO_GetFd(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_driver.descriptor_or_code(THIS_OPERATION, slot_of(s32Dev, s32Chn));
}

int32_t HI_MPI_AO_GetFileHandle(int32_t s32Slot)
{
    if (uint32_t(s32Slot) >= AIO_SLOTS) return ao_driver.refuse_channel(THIS_OPERATION, s32Slot);
    return ao_driver.descriptor_or_code(THIS_OPERATION, size_t(s32Slot));
}
