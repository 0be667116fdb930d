/**
 * Buffer pools: equal-sized blocks of contiguous media memory.
 *
 * Pools 0 to 127 belong to the driver; mapping one makes its blocks readable without a system call.
 * Operations return 0, the driver's result or a coded error of HI_ID_VB; where the device cannot be opened
 * the code is MPP_ERR_REFUSED, or the failure value said below. Each pool has a lock: operations may be
 * called from several threads. Messages go to standard error.
 */
#ifndef MPI_SRC_MPI_VB_H
#define MPI_SRC_MPI_VB_H

#include <stdint.h>

#include "mpi/src/vb_uapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Set the common pools that HI_MPI_VB_Init makes.
 * @return 0, or a code as said above; MPP_ERR_NULL
 */
int32_t HI_MPI_VB_SetConf(const VB_CONF_S* pstConf);
/** Read them. @return 0, or a code as said above; MPP_ERR_NULL */
int32_t HI_MPI_VB_GetConf(VB_CONF_S* pstConf);

/** Start the driver's pools. @return 0, or a code as said above */
int32_t HI_MPI_VB_Init(void);
/** Stop them, and unmap every pool when the driver has. @return 0, or a code as said above */
int32_t HI_MPI_VB_Exit(void);

/** Make a pool of u32BlkCnt blocks of u32BlkSize bytes. @return the pool; VB_ANY_POOL (-1) on failure */
uint32_t HI_MPI_VB_CreatePool(uint32_t u32BlkSize, uint32_t u32BlkCnt);
/** Give a pool up; its mapping goes too. @return 0, or a code as said above */
int32_t HI_MPI_VB_DestroyPool(uint32_t u32Pool);

/**
 * Take a block.
 * @param u32Pool     VB_ANY_POOL, or one pool
 * @param u32BlkSize  bytes at least, with VB_ANY_POOL; the blocks of one pool have their own size
 * @return a handle, given back with HI_MPI_VB_ReleaseBlock; -1 on failure
 */
uint32_t HI_MPI_VB_GetBlock(uint32_t u32Pool, uint32_t u32BlkSize);
/** Give a block back. @return 0, or a code as said above */
int32_t HI_MPI_VB_ReleaseBlock(uint32_t u32Block);
/** Physical address of a block. @return it; 0 on failure */
uint32_t HI_MPI_VB_Handle2PhysAddr(uint32_t u32Block);
/** Pool of a block. @return it; -1 on failure */
uint32_t HI_MPI_VB_Handle2PoolId(uint32_t u32Block);

/**
 * Map a pool into the process. Mapping a mapped pool is a notice and success.
 * @return also MPP_ERR_PARAM for a pool above 127, MPP_ERR_NO_MEMORY when it cannot be mapped
 */
int32_t HI_MPI_VB_MmapPool(uint32_t u32Pool);
/**
 * Undo HI_MPI_VB_MmapPool.
 * @return also MPP_ERR_PARAM for a pool above 127; MPP_ERR_REFUSED for a pool that is not mapped;
 *         MPP_ERR_BUSY while a block of it is in use, it stays mapped
 */
int32_t HI_MPI_VB_MunmapPool(uint32_t u32Pool);

/**
 * Where a block of a mapped pool lies in the process. The address is not checked against the pool's range.
 * @param ppVirtAddr  receives the address; it is valid until the pool is unmapped
 * @return also MPP_ERR_NULL, MPP_ERR_PARAM, MPP_ERR_REFUSED for a pool that is not mapped
 */
int32_t HI_MPI_VB_GetBlkVirAddr(uint32_t u32Pool, uint32_t u32PhysAddr, void** ppVirtAddr);

#ifdef __cplusplus
}
#endif
#endif
