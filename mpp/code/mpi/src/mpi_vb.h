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

/** Common pools for HI_MPI_VB_Init. @return also MPP_ERR_NULL */
int32_t HI_MPI_VB_SetConf(const VB_CONF_S* pstConf);
int32_t HI_MPI_VB_GetConf(VB_CONF_S* pstConf);

/** Start the driver's pools. @return also -1 when the locks cannot be made */
int32_t HI_MPI_VB_Init(void);
/** Stop them. Mappings of pools that the driver gives up go too. */
int32_t HI_MPI_VB_Exit(void);

/** @return the pool; VB_ANY_POOL (-1) on failure */
uint32_t HI_MPI_VB_CreatePool(uint32_t u32BlkSize, uint32_t u32BlkCnt);
/** A mapping of the pool goes too. */
int32_t HI_MPI_VB_DestroyPool(uint32_t u32Pool);

/** @param u32Pool  VB_ANY_POOL, or one pool, whose blocks have their own size @return a handle; -1 on failure
 */
uint32_t HI_MPI_VB_GetBlock(uint32_t u32Pool, uint32_t u32BlkSize);
int32_t HI_MPI_VB_ReleaseBlock(uint32_t u32Block);
/** @return the address; 0 on failure */
uint32_t HI_MPI_VB_Handle2PhysAddr(uint32_t u32Block);
/** @return the pool; -1 on failure */
uint32_t HI_MPI_VB_Handle2PoolId(uint32_t u32Block);

/**
 * Map a pool into the process. Mapping a mapped pool is a notice and success.
 * @return also MPP_ERR_PARAM for a pool above 127, MPP_ERR_NO_MEMORY when it cannot be mapped
 */
int32_t HI_MPI_VB_MmapPool(uint32_t u32Pool);
/** @return also MPP_ERR_PARAM; MPP_ERR_REFUSED for a pool that is not mapped; MPP_ERR_BUSY while it is in use
 */
int32_t HI_MPI_VB_MunmapPool(uint32_t u32Pool);

/**
 * Where a block of a mapped pool lies in the process. The address is not checked against the pool's range.
 * @return also MPP_ERR_NULL, MPP_ERR_PARAM, MPP_ERR_REFUSED for a pool that is not mapped
 */
int32_t HI_MPI_VB_GetBlkVirAddr(uint32_t u32Pool, uint32_t u32PhysAddr, void** ppVirtAddr);

#ifdef __cplusplus
}
#endif
#endif
