// System layer: start and stop, configuration, time stamps, identity, bindings.
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_sys.hpp"

#include "base/mpp_report.hpp"
#include "mkp/bind/sys_bind.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t kChipIdRegister = 0x10070000;
constexpr char kVersion[] = "HI_VERSION=Hi3516_MPP_V1.0.6.1 Debug";
static_assert(sizeof kVersion == MPP_VERSION_SIZE);

constexpr zep::ModuleError coded{HI_ID_SYS};

int32_t refuse(const char* message, uint32_t number)
{
    fputs(message, stderr);
    return coded(number);
}

int32_t null_point() { return refuse("Null point \n", MPP_ERR_NULL); }

bool several_devices(int32_t module)
{
    return module == HI_ID_VIDEO_OUT || module == HI_ID_AI || module == HI_ID_AO;
}

// In the caller's memory: callers look their channel up again by the record.
void normalise(MPP_CHN_S* channel)
{
    if (!several_devices(channel->s32ModId)) channel->s32DevId = 0;
}

struct Module {
    int32_t (*init)();
    const char* failure;
};
constexpr Module kModules[] = {
    {SYS_BIND_Init, "initialize sys bind failed!\n"}, {MPI_AI_Init, "initialize ai mpi failed!\n"},
    {MPI_AO_Init, "initialize ao mpi failed!\n"},     {MPI_AENC_Init, "initialize aenc mpi failed!\n"},
    {MPI_ADEC_Init, "initialize adec mpi failed!\n"},
};

} // namespace

int32_t HI_MPI_SYS_Init(void)
{
    if (int32_t failed = zep::sys_driver.request(SYS_REQ_INIT)) return failed;
    for (const Module& module : kModules) {
        if (module.init() == 0) continue;
        fputs(module.failure, stderr);
        return -1;
    }
    return 0;
}

int32_t HI_MPI_SYS_Exit(void)
{
    if (int failed = zep::sys_driver.open()) return failed;
    MPI_AI_DeInit();
    MPI_AENC_DeInit();
    MPI_ADEC_DeInit();
    MPI_AO_DeInit();
    SYS_BIND_DeInit();
    return zep::sys_driver.request(SYS_REQ_EXIT);
}

int32_t HI_MPI_SYS_SetConf(const MPP_SYS_CONF_S* pstConf)
{
    if (!pstConf) return refuse("null ptr!\n", MPP_ERR_NULL);
    MPP_SYS_CONF_S conf = *pstConf;
    return zep::sys_driver.request(SYS_REQ_SET_CONF, &conf);
}

int32_t HI_MPI_SYS_GetConf(MPP_SYS_CONF_S* pstConf)
{
    if (!pstConf) return refuse("null ptr!\n", MPP_ERR_NULL);
    return zep::sys_driver.request(SYS_REQ_GET_CONF, pstConf);
}

int32_t HI_MPI_SYS_GetCurPts(uint64_t* pu64Pts)
{
    if (!pu64Pts) return coded(MPP_ERR_NULL);
    return zep::sys_driver.request(SYS_REQ_GET_CUR_PTS, pu64Pts);
}

int32_t HI_MPI_SYS_SetPtsBase(uint64_t u64Base)
{
    return zep::sys_driver.request(SYS_REQ_SET_PTS_BASE, &u64Base);
}

int32_t HI_MPI_SYS_SyncPtsBase(uint64_t u64Base)
{
    return zep::sys_driver.request(SYS_REQ_SYNC_PTS_BASE, &u64Base);
}

int32_t HI_MPI_SYS_Bind(MPP_CHN_S* pstSrc, MPP_CHN_S* pstDest)
{
    if (!pstSrc || !pstDest) return null_point();
    normalise(pstDest);
    normalise(pstSrc);
    if (pstSrc->s32ModId == HI_ID_ADEC) return SYS_Bind(pstSrc, pstDest);
    SYS_BIND_ARG_S argument = {pstSrc, pstDest};
    return zep::sys_driver.request(SYS_REQ_BIND, &argument);
}

int32_t HI_MPI_SYS_UnBind(MPP_CHN_S* pstSrc, MPP_CHN_S* pstDest)
{
    if (!pstDest) return null_point();
    normalise(pstDest);
    if (pstSrc) normalise(pstSrc);
    if (pstSrc && pstSrc->s32ModId == HI_ID_ADEC) return SYS_UnBind(pstDest);
    SYS_BIND_ARG_S argument = {pstSrc, pstDest};
    return zep::sys_driver.request(SYS_REQ_UNBIND, &argument);
}

int32_t HI_MPI_SYS_GetBindByDest(MPP_CHN_S* pstDest, MPP_CHN_S* pstSrc)
{
    if (!pstDest || !pstSrc) return null_point();
    normalise(pstSrc);
    normalise(pstDest);
    // By the destination's module, so that a decoder's outputs are asked of the driver: callers rely on its
    // answer.
    if (pstDest->s32ModId == HI_ID_ADEC) return SYS_GetBindByDest(pstDest, pstSrc);
    SYS_BIND_ARG_S argument = {pstDest, pstSrc};
    return zep::sys_driver.request(SYS_REQ_GET_BIND_BY_DEST, &argument);
}

int32_t HI_MPI_SYS_GetChipId(uint32_t* pu32ChipId)
{
    if (!pu32ChipId) return null_point();
    uint32_t value = 0;
    if (int32_t failed = HI_MPI_SYS_GetReg(kChipIdRegister, &value)) {
        fputs("System get chip ID failed!\n", stderr);
        return failed;
    }
    *pu32ChipId = value == 2 ? 3517 : 3516;
    return 0;
}

int32_t HI_MPI_SYS_GetDieId(SYS_DIE_ID_S* pstDieId)
{
    if (!pstDieId) return null_point();
    if (int failed = zep::sys_driver.open()) return failed;
    if (zep::sys_driver.request(SYS_REQ_GET_DIE_ID, pstDieId) == 0) return 0;
    return refuse("System get chip DIE ID failed!\n", MPP_ERR_REFUSED);
}

int32_t HI_MPI_SYS_GetCustomerId(uint8_t* pu8CustomerId)
{
    if (!pu8CustomerId) return null_point();
    if (int failed = zep::sys_driver.open()) return failed;
    if (zep::sys_driver.request(SYS_REQ_GET_CUSTOMER_ID, pu8CustomerId) == 0) return 0;
    return refuse("System get chip customer ID failed!\n", MPP_ERR_REFUSED);
}

int32_t HI_MPI_SYS_GetVirtRegAddr(uint32_t* pu32Address)
{
    if (int failed = zep::sys_driver.open()) return failed;
    if (zep::sys_driver.request(SYS_REQ_GET_VIRT_REG, pu32Address) == 0) return 0;
    perror("Get virtual reg address failed!\n");
    return coded(MPP_ERR_REFUSED);
}

int32_t HI_MPI_SYS_GetVersion(char* strVersion)
{
    if (!strVersion) return coded(MPP_ERR_NULL);
    memcpy(strVersion, kVersion, sizeof kVersion);
    return 0;
}
