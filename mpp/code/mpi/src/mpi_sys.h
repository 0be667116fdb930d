/**
 * System layer of the media platform: start and stop, memory, registers, identity, log, bindings.
 *
 * Every operation returns 0, the positive errno of a failed open, a coded error (base/mpp_error.h) of
 * HI_ID_SYS, or what is said below. Device files are opened on first use and stay open for the life of the
 * process. Messages go to standard error. Operations may be called from several threads, but not
 * HI_MPI_SYS_Init, _Exit and _CloseFd beside others.
 */
#ifndef MPI_SRC_MPI_SYS_H
#define MPI_SRC_MPI_SYS_H

#include <stdint.h>

#include "base/mpp_error.h"
#include "mpi/src/log_uapi.h"
#include "mpi/src/sys_uapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes that HI_MPI_SYS_GetVersion writes, with the terminator. */
#define MPP_VERSION_SIZE 37

/**
 * Start the platform: the driver, the binder, AI, AO, AENC, ADEC. What runs already is left alone.
 * @return 0; the driver's result; -1 after a message that names the module which failed
 */
int32_t HI_MPI_SYS_Init(void);

/** Stop AI, AENC, ADEC, AO, the binder, then the driver. @return the driver's result */
int32_t HI_MPI_SYS_Exit(void);

/** Set the system configuration; before HI_MPI_SYS_Init. @return the driver's result; MPP_ERR_NULL */
int32_t HI_MPI_SYS_SetConf(const MPP_SYS_CONF_S* pstConf);
/** Read it. @return the driver's result; MPP_ERR_NULL */
int32_t HI_MPI_SYS_GetConf(MPP_SYS_CONF_S* pstConf);

/** Current time stamp, microseconds. @return the driver's result; MPP_ERR_NULL */
int32_t HI_MPI_SYS_GetCurPts(uint64_t* pu64Pts);
/** Set the time stamps' base, microseconds. @return the driver's result */
int32_t HI_MPI_SYS_SetPtsBase(uint64_t u64Base);
/**
 * Synchronise the time stamps with a base, microseconds; the driver defines how.
 * @return the driver's result
 */
int32_t HI_MPI_SYS_SyncPtsBase(uint64_t u64Base);

/**
 * Connect a source channel to a destination. A source of ADEC is bound in this process, any other in the
 * driver. The device id of a module with one device is overwritten with 0, in the caller's records.
 * @return 0; the binder's code (mkp/bind/sys_bind.h) or the driver's result; MPP_ERR_NULL
 */
int32_t HI_MPI_SYS_Bind(MPP_CHN_S* pstSrc, MPP_CHN_S* pstDest);
/**
 * Disconnect a destination. A null source goes to the driver as it is.
 * @return 0; the binder's code or the driver's result; MPP_ERR_NULL for a null destination
 */
int32_t HI_MPI_SYS_UnBind(MPP_CHN_S* pstSrc, MPP_CHN_S* pstDest);
/**
 * Fill in the source of a destination. A destination of ADEC is looked up in this process, whose table has
 * none: it is always refused. Any other is the driver's to look up, an output of a decoder too.
 * @return 0; the binder's code or the driver's result; MPP_ERR_NULL
 */
int32_t HI_MPI_SYS_GetBindByDest(MPP_CHN_S* pstDest, MPP_CHN_S* pstSrc);

/**
 * Allocate contiguous media memory and map it, uncached.
 * @param pu32PhysAddr, ppVirtAddr  receive the addresses
 * @param strMmb, strZone           block and zone name, at most 15 characters are used; null: no name, the
 *                                  default zone
 * @return 0; -1: nothing allocated, or allocated and not mapped
 */
int32_t HI_MPI_SYS_MmzAlloc(uint32_t* pu32PhysAddr, void** ppVirtAddr, const char* strMmb,
                            const char* strZone, uint32_t u32Size);
/** The same, mapped through the cache. @return as HI_MPI_SYS_MmzAlloc */
int32_t HI_MPI_SYS_MmzAllocCached(uint32_t* pu32PhysAddr, void** ppVirtAddr, const char* strMmb,
                                  const char* strZone, uint32_t u32Size);
/** Unmap and free. @return 0 or -1; a block that cannot be unmapped is not freed */
int32_t HI_MPI_SYS_MmzFree(uint32_t u32PhysAddr);
/** Write the cache back: the whole of it for a physical address of 0. @return the driver's result */
int32_t HI_MPI_SYS_MmzFlushCache(uint32_t u32PhysAddr, void* pVirtAddr, uint32_t u32Size);

/** Map physical memory, uncached. @return its address; null on failure or for a size of 0 */
void* HI_MPI_SYS_Mmap(uint32_t u32PhysAddr, uint32_t u32Size);
/** Undo HI_MPI_SYS_Mmap with the same size. @return munmap's result */
int32_t HI_MPI_SYS_Munmap(void* pVirtAddr, uint32_t u32Size);

/** Read a 32-bit register. @return 0; -1 when it cannot be mapped; MPP_ERR_NULL */
int32_t HI_MPI_SYS_GetReg(uint32_t u32PhysAddr, uint32_t* pu32Value);
/** Write a 32-bit register. @return 0; -1 when it cannot be mapped */
int32_t HI_MPI_SYS_SetReg(uint32_t u32PhysAddr, uint32_t u32Value);

/** 3517 or 3516 (decimal), by the identity register. @return 0; what the read gave; MPP_ERR_NULL */
int32_t HI_MPI_SYS_GetChipId(uint32_t* pu32ChipId);
/** The chip's own number. @return 0; MPP_ERR_NULL; MPP_ERR_REFUSED */
int32_t HI_MPI_SYS_GetDieId(SYS_DIE_ID_S* pstDieId);
/** The customer's number, one byte. @return 0; MPP_ERR_NULL; MPP_ERR_REFUSED */
int32_t HI_MPI_SYS_GetCustomerId(uint8_t* pu8CustomerId);
/** @param pu32Address  register address in, virtual address out @return 0; MPP_ERR_REFUSED */
int32_t HI_MPI_SYS_GetVirtRegAddr(uint32_t* pu32Address);

/** @param strVersion  receives the text, MPP_VERSION_SIZE bytes @return 0; MPP_ERR_NULL */
int32_t HI_MPI_SYS_GetVersion(char* strVersion);

/**
 * Close the log, system and memory descriptors; they open again on the next use.
 * @return 0; the -1 of a close that failed, the rest stay open then
 */
int32_t HI_MPI_SYS_CloseFd(void);

/** Set the level of a module's media log. @return the driver's result; -1 for null */
int32_t HI_MPI_LOG_SetLevelConf(LOG_LEVEL_CONF_S* pstConf);
/** Read the level of the module in the record. @return the driver's result; -1 for null */
int32_t HI_MPI_LOG_GetLevelConf(LOG_LEVEL_CONF_S* pstConf);
/** 1: reading waits for a message; 0: it does not. @return the driver's result */
int32_t HI_MPI_LOG_SetWaitFlag(uint32_t u32Wait);
/** Read the media log. @return bytes; -1 with errno; the positive errno of a failed open */
int32_t HI_MPI_LOG_Read(void* pBuffer, uint32_t u32Length);
/** Close the log's descriptor. @return -1 when it was open, else 0 */
int32_t HI_MPI_LOG_Close(void);

#ifdef __cplusplus
}
#endif
#endif
