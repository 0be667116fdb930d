// Audio output: devices and channels.
#include "mpi/src/mpi_ao.hpp"

#include "base/mpp_report.hpp"
#include "mkp/bind/sys_bind.h"
#include "mpi/src/mpi_modules.hpp"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zep {

constinit AoState ao;

int32_t ao_check(const char* function, int line, int32_t device, int32_t channel)
{
    if (!valid_device(device)) {
        mpp_log(function, line, "aodev%d is not supported\n", device);
        return ao_error(MPP_ERR_DEVICE);
    }
    if (valid_channel(channel)) return 0;
    mpp_log(function, line, "ao chnid %d is invalid\n", channel);
    return ao_error(MPP_ERR_CHANNEL);
}

namespace {

// A plain file in the device's place would swallow frames without a sound.
bool is_device(const char* path)
{
    struct stat status = {};
    if (stat(path, &status) < 0) {
        MPP_LOG("Cannot identify '%s': %d, %s\n", path, errno, strerror(errno));
        return false;
    }
    if (S_ISCHR(status.st_mode)) return true;
    MPP_LOG("%s is no device\n", path);
    return false;
}

} // namespace

int ao_descriptor(size_t slot)
{
    int fd = ao.slots.get(slot);
    if (fd >= 0) return fd;
    if (!is_device(AO_DEVICE)) return -1;
    fd = open_slot(AO_DEVICE, AO_REQ_BIND_SLOT, uint32_t(slot));
    if (fd >= 0) ao.slots.set(slot, fd);
    return fd;
}

int32_t ao_request(size_t slot, uint32_t code, void* argument)
{
    int fd = ao_descriptor(slot);
    return fd < 0 ? ao_error(MPP_ERR_REFUSED) : ioctl(fd, static_cast<unsigned long>(code), argument);
}

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

int32_t device_request(int32_t device, uint32_t code, void* argument = nullptr)
{
    return ao_request(slot_of(device, 0), code, argument);
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
    AO_CHECK(s32Dev);
    if (!pstAttr) return ao_error(MPP_ERR_NULL);
    AIO_ATTR_S attr = *pstAttr;
    return device_request(s32Dev, AO_REQ_SET_PUB_ATTR, &attr);
}

int32_t HI_MPI_AO_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr)
{
    AO_CHECK(s32Dev);
    if (!pstAttr) return ao_error(MPP_ERR_NULL);
    return device_request(s32Dev, AO_REQ_GET_PUB_ATTR, pstAttr);
}

int32_t HI_MPI_AO_Enable(int32_t s32Dev)
{
    AO_CHECK(s32Dev);
    return device_request(s32Dev, AO_REQ_ENABLE);
}

int32_t HI_MPI_AO_Disable(int32_t s32Dev)
{
    AO_CHECK(s32Dev);
    return device_request(s32Dev, AO_REQ_DISABLE);
}

int32_t HI_MPI_AO_EnableChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_request(slot_of(s32Dev, s32Chn), AO_REQ_ENABLE_CHN);
}

int32_t HI_MPI_AO_DisableChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    HI_MPI_AO_DisableReSmp(s32Dev, s32Chn);
    return ao_request(slot_of(s32Dev, s32Chn), AO_REQ_DISABLE_CHN);
}

int32_t HI_MPI_AO_PauseChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_request(slot_of(s32Dev, s32Chn), AO_REQ_PAUSE_CHN);
}

int32_t HI_MPI_AO_ResumeChn(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_request(slot_of(s32Dev, s32Chn), AO_REQ_RESUME_CHN);
}

int32_t HI_MPI_AO_ClearChnBuf(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    return ao_request(slot_of(s32Dev, s32Chn), AO_REQ_CLEAR_BUF);
}

int32_t HI_MPI_AO_GetFd(int32_t s32Dev, int32_t s32Chn)
{
    AO_CHECK(s32Dev, s32Chn);
    int fd = ao_descriptor(slot_of(s32Dev, s32Chn));
    return fd < 0 ? ao_error(MPP_ERR_REFUSED) : fd;
}

int32_t HI_MPI_AO_GetFileHandle(int32_t s32Slot)
{
    if (uint32_t(s32Slot) >= AIO_SLOTS) {
        MPP_LOG("ao chnid %d is invalid\n", s32Slot);
        return ao_error(MPP_ERR_CHANNEL);
    }
    int fd = ao_descriptor(size_t(s32Slot));
    return fd < 0 ? ao_error(MPP_ERR_REFUSED) : fd;
}
