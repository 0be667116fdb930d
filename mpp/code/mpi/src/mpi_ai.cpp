// Audio input: devices and channels.
#include "mpi/src/mpi_ai.hpp"

#include "base/mpp_report.hpp"
#include "mpi/src/mpi_sys.hpp"
#include "mpi/src/mpi_vb.h"
#include "mpi/src/mpi_vb.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

namespace zep {

constinit AiState ai;
constinit AioDriver ai_driver = {
    .coded = {HI_ID_AI},
    .name = "ai",
    .path = AI_DEVICE,
    .bind_slot = AI_REQ_BIND_SLOT,
    .get_pub_attr = AI_REQ_GET_PUB_ATTR,
    .must_be_character = false,
    .device_is_output = false,
    .explain = explain_ai,
};

} // namespace zep

using namespace zep;

namespace {

// Stages go, descriptors stay: the device files are open for the life of the process.
void clear_channels()
{
    for (AiChannel& channel : ai.channels) {
        MutexLock locked(channel.lock);
        channel.resample.disable();
        channel.noise.disable();
    }
}

int32_t open_slot_request(size_t slot, uint32_t code, void* argument)
{
    int fd = ai_driver.slots.get(slot);
    return fd < 0 ? ai_driver.coded(MPP_ERR_REFUSED) : ioctl(fd, static_cast<unsigned long>(code), argument);
}

} // namespace

int32_t MPI_AI_Init(void)
{
    if (!ai.initialised.exchange(true)) clear_channels();
    return 0;
}

int32_t MPI_AI_DeInit(void)
{
    if (!ai.initialised.exchange(false)) return 0;
    clear_channels();
    for (auto& pool : ai.pools) vb_forget(pool.exchange(kNoPool));
    return 0;
}

int32_t HI_MPI_AI_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr)
{
    return ai_driver.exchange(THIS_OPERATION, s32Dev, AI_REQ_SET_PUB_ATTR, const_cast<AIO_ATTR_S*>(pstAttr));
}

int32_t HI_MPI_AI_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr)
{
    return ai_driver.exchange(THIS_OPERATION, s32Dev, AI_REQ_GET_PUB_ATTR, pstAttr);
}

int32_t HI_MPI_AI_Enable(int32_t s32Dev)
{
    AI_CHECK(s32Dev);
    const size_t slot = slot_of(s32Dev, 0);
    if (int32_t failed = ai_driver.request(THIS_OPERATION, slot, AI_REQ_ENABLE)) return failed;
    uint32_t pool = 0;
    if (int32_t failed = ai_driver.request(THIS_OPERATION, slot, AI_REQ_GET_POOL, &pool)) return failed;
    // Kept only when mapped: a number that came from the driver is not to be unmapped later on trust.
    if (int32_t failed = HI_MPI_VB_MmapPool(pool)) return failed;
    ai.pools[s32Dev] = pool;
    return 0;
}

int32_t HI_MPI_AI_Disable(int32_t s32Dev)
{
    AI_CHECK(s32Dev);
    // Unmapped first: the driver gives the pool's memory back when the device stops. While a frame is out it
    // stays mapped, and the device enabled.
    if (ai.pools[s32Dev] != kNoPool)
        if (int32_t failed = HI_MPI_VB_MunmapPool(ai.pools[s32Dev])) return failed;
    ai.pools[s32Dev] = kNoPool;
    return ai_driver.request(THIS_OPERATION, slot_of(s32Dev, 0), AI_REQ_DISABLE);
}

int32_t HI_MPI_AI_EnableChn(int32_t s32Dev, int32_t s32Chn)
{
    return ai_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AI_REQ_ENABLE_CHN);
}

int32_t HI_MPI_AI_DisableChn(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    HI_MPI_AI_DisableReSmp(s32Dev, s32Chn);
    return ai_driver.request(THIS_OPERATION, slot_of(s32Dev, s32Chn), AI_REQ_DISABLE_CHN);
}

int32_t HI_MPI_AI_EnableAec(int32_t s32AiDev, int32_t s32AiChn, int32_t s32AoDev, int32_t s32AoChn)
{
    AI_CHECK(s32AiDev, s32AiChn);
    if (!valid_device(s32AoDev)) {
        MPP_LOG("aodev%d is not supported\n", s32AoDev);
        return MPP_ERROR(HI_ID_AO, MPP_ERR_DEVICE);
    }
    if (!valid_channel(s32AoChn)) {
        MPP_LOG("ao chnid %d is invalid\n", s32AoChn);
        return MPP_ERROR(HI_ID_AO, MPP_ERR_CHANNEL);
    }
    AI_AEC_SOURCE_S source = {s32AoDev, s32AoChn};
    return ai_driver.request(THIS_OPERATION, slot_of(s32AiDev, s32AiChn), AI_REQ_ENABLE_AEC, &source);
}

int32_t HI_MPI_AI_DisableAec(int32_t s32Dev, int32_t s32Chn)
{
    return ai_driver.operate(THIS_OPERATION, s32Dev, s32Chn, AI_REQ_DISABLE_AEC);
}

int32_t HI_MPI_AI_SetChnParam(int32_t s32Dev, int32_t s32Chn, const AI_CHN_PARAM_S* pstParam)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstParam) return ai_driver.coded(MPP_ERR_NULL);
    AI_CHN_PARAM_S param = *pstParam;
    return open_slot_request(slot_of(s32Dev, s32Chn), AI_REQ_SET_CHN_PARAM, &param);
}

int32_t HI_MPI_AI_GetChnParam(int32_t s32Dev, int32_t s32Chn, AI_CHN_PARAM_S* pstParam)
{
    AI_CHECK(s32Dev, s32Chn);
    if (!pstParam) return ai_driver.coded(MPP_ERR_NULL);
    return open_slot_request(slot_of(s32Dev, s32Chn), AI_REQ_GET_CHN_PARAM, pstParam);
}

int32_t HI_MPI_AI_GetFd(int32_t s32Dev, int32_t s32Chn)
{
    AI_CHECK(s32Dev, s32Chn);
    return ai_driver.descriptor_or_code(THIS_OPERATION, slot_of(s32Dev, s32Chn));
}

int32_t HI_MPI_AI_GetFileHandle(int32_t s32Slot)
{
    AI_CHECK(0, s32Slot);
    return ai_driver.descriptor_or_code(THIS_OPERATION, size_t(s32Slot));
}
