// Buffer pools.
#include "mpi/src/mpi_vb.h"
#include "mpi/src/mpi_vb.hpp"

#include "base/mpp_lock.hpp"
#include "base/mpp_report.hpp"
#include "mpi/src/mpi_driver.hpp"
#include "mpi/src/mpi_sys.h"

namespace {

using zep::MutexLock;

struct Pool {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    bool mapped = false;
    uint32_t id = 0;
    uint32_t size = 0;
    uint32_t physical = 0;
    uint8_t* base = nullptr;
};

struct State {
    Pool pools[VB_MAX_POOLS];
};
constinit State state; // all zeros at the start, so it takes no room in the file
constinit zep::Driver driver(VB_DEVICE, "open err\n");

constexpr zep::ModuleError coded{HI_ID_VB};

int32_t request(uint32_t code, void* argument = nullptr)
{
    if (driver.open() != 0) return coded(MPP_ERR_REFUSED);
    return driver.request(code, argument);
}

// A request on one word: the word that the driver leaves, or `failure`.
uint32_t exchange(uint32_t code, uint32_t word, uint32_t failure)
{
    return request(code, &word) == 0 ? word : failure;
}

bool valid_pool(uint32_t pool, const char* function, int line)
{
    if (pool < VB_MAX_POOLS) return true;
    zep::mpp_log(function, line, "Illegal poolid %d!\n", int(pool));
    return false;
}
#define VALID_POOL(pool) valid_pool(pool, __func__, __LINE__)

void unmap(Pool& pool)
{
    if (!pool.mapped) return;
    HI_MPI_SYS_Munmap(pool.base, pool.size);
    pool.mapped = false;
    pool.base = nullptr;
}

// Where an address of a mapped pool lies in the process, under the pool's lock. Both callers report as the
// public operation.
int32_t locate(const Pool& pool, uint32_t number, uint32_t physical, void** address)
{
    constexpr char kOperation[] = "HI_MPI_VB_GetBlkVirAddr";
    if (!pool.mapped) {
        zep::mpp_log(kOperation, __LINE__, "Pool %d hasn't mapped!\n", int(number));
        return coded(MPP_ERR_REFUSED);
    }
    zep::mpp_assert(pool.base, "mpp/code/mpi/src/mpi_vb", kOperation, __LINE__,
                    "NULL != pstPoolInfo->pPoolVirAddr");
    const auto base = reinterpret_cast<uintptr_t>(pool.base);
    *address = reinterpret_cast<void*>(base + physical - pool.physical);
    return 0;
}

} // namespace

int32_t HI_MPI_VB_SetConf(const VB_CONF_S* pstConf)
{
    if (!pstConf) return coded(MPP_ERR_NULL);
    VB_CONF_S conf = *pstConf;
    return request(VB_REQ_SET_CONF, &conf);
}

int32_t HI_MPI_VB_GetConf(VB_CONF_S* pstConf)
{
    if (!pstConf) return coded(MPP_ERR_NULL);
    return request(VB_REQ_GET_CONF, pstConf);
}

// The locks exist from the start: initialising them here would lose one that is held.
int32_t HI_MPI_VB_Init(void) { return request(VB_REQ_INIT); }

int32_t HI_MPI_VB_Exit(void)
{
    int32_t result = request(VB_REQ_EXIT);
    // After a new start the same number is another memory: a mapping kept would show the old one.
    for (Pool& pool : state.pools) {
        MutexLock locked(pool.lock);
        if (result == 0) unmap(pool);
    }
    return result;
}

uint32_t HI_MPI_VB_CreatePool(uint32_t u32BlkSize, uint32_t u32BlkCnt)
{
    VB_POOL_CREATE_S record = {VB_ANY_POOL, u32BlkSize, u32BlkCnt, UINT32_MAX, 0};
    return request(VB_REQ_CREATE_POOL, &record) == 0 ? record.u32PoolId : VB_ANY_POOL;
}

int32_t HI_MPI_VB_DestroyPool(uint32_t u32Pool)
{
    const uint32_t pool = u32Pool;
    int32_t result = request(VB_REQ_DESTROY_POOL, &u32Pool);
    // The next pool of this number is another memory, and could never be mapped over the old one's mapping.
    if (result == 0) zep::vb_forget(pool);
    return result;
}

uint32_t HI_MPI_VB_GetBlock(uint32_t u32Pool, uint32_t u32BlkSize)
{
    VB_BLOCK_REQUEST_S record = {u32Pool, 0, 0, UINT32_MAX, 0};
    if (u32Pool == VB_ANY_POOL) record = {VB_ANY_POOL, u32BlkSize, 0, UINT32_MAX, 1};
    return request(VB_REQ_GET_BLOCK, &record) == 0 ? record.u32Handle : UINT32_MAX;
}

int32_t HI_MPI_VB_ReleaseBlock(uint32_t u32Block) { return request(VB_REQ_RELEASE_BLOCK, &u32Block); }

uint32_t HI_MPI_VB_Handle2PhysAddr(uint32_t u32Block) { return exchange(VB_REQ_HANDLE_TO_PHYS, u32Block, 0); }

uint32_t HI_MPI_VB_Handle2PoolId(uint32_t u32Block)
{
    return exchange(VB_REQ_HANDLE_TO_POOL, u32Block, UINT32_MAX);
}

int32_t HI_MPI_VB_MmapPool(uint32_t u32Pool)
{
    if (!VALID_POOL(u32Pool)) return coded(MPP_ERR_PARAM);
    Pool& pool = state.pools[u32Pool];
    MutexLock locked(pool.lock);
    if (pool.mapped) {
        MPP_LOG("Pool %d has mapped!\n", int(u32Pool));
        return 0;
    }
    VB_POOL_INFO_S info = {u32Pool, 0, 0, 0};
    if (int32_t failed = request(VB_REQ_POOL_INFO, &info)) {
        MPP_LOG("Get vb pool %d's info failed!\n", int(u32Pool));
        return failed;
    }
    void* base = HI_MPI_SYS_Mmap(info.u32PhysAddr, info.u32PoolSize);
    if (!base) {
        MPP_LOG("Get vb pool %d' mmap user addr failed!\n", int(u32Pool));
        return coded(MPP_ERR_NO_MEMORY);
    }
    pool.id = u32Pool;
    pool.size = info.u32PoolSize;
    pool.physical = info.u32PhysAddr;
    pool.base = static_cast<uint8_t*>(base);
    pool.mapped = true;
    return 0;
}

int32_t HI_MPI_VB_MunmapPool(uint32_t u32Pool)
{
    if (!VALID_POOL(u32Pool)) return coded(MPP_ERR_PARAM);
    Pool& pool = state.pools[u32Pool];
    MutexLock locked(pool.lock);
    if (!pool.mapped) {
        MPP_LOG("Pool %d hasn't mapped!\n", int(u32Pool));
        return coded(MPP_ERR_REFUSED);
    }
    uint32_t word = u32Pool;
    if (int32_t failed = request(VB_REQ_POOL_IN_USE, &word)) {
        MPP_LOG("Query vb pool %d used stat failed!\n", int(u32Pool));
        return failed;
    }
    if (word != 0) {
        MPP_LOG("Vb pool %d  is used by some modules!\n", int(u32Pool));
        return coded(MPP_ERR_BUSY);
    }
    unmap(pool);
    return 0;
}

int32_t HI_MPI_VB_GetBlkVirAddr(uint32_t u32Pool, uint32_t u32PhysAddr, void** ppVirtAddr)
{
    if (!ppVirtAddr) return coded(MPP_ERR_NULL);
    if (!VALID_POOL(u32Pool)) return coded(MPP_ERR_PARAM);
    Pool& pool = state.pools[u32Pool];
    MutexLock locked(pool.lock);
    // No range check: callers translate addresses beside a block, and then use what lies inside.
    return locate(pool, u32Pool, u32PhysAddr, ppVirtAddr);
}

void zep::vb_forget(uint32_t pool_id)
{
    if (pool_id >= VB_MAX_POOLS) return;
    Pool& pool = state.pools[pool_id];
    MutexLock locked(pool.lock);
    unmap(pool);
}

int32_t zep::vb_translate(uint32_t pool_id, uint32_t physical, uint32_t length, uint8_t** address)
{
    if (!valid_pool(pool_id, "HI_MPI_VB_GetBlkVirAddr", __LINE__)) return coded(MPP_ERR_PARAM);
    const Pool& pool = state.pools[pool_id];
    MutexLock locked(state.pools[pool_id].lock);
    void* at = nullptr;
    if (int32_t failed = locate(pool, pool_id, physical, &at)) return failed;
    const uint32_t offset = physical - pool.physical;
    if (physical < pool.physical || offset > pool.size || length > pool.size - offset)
        return coded(MPP_ERR_PARAM);
    *address = static_cast<uint8_t*>(at);
    return 0;
}
