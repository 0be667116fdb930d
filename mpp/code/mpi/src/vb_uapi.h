/** Buffer-pool driver "/dev/vb": requests and records. */
#ifndef MPI_SRC_VB_UAPI_H
#define MPI_SRC_VB_UAPI_H

#include <stdint.h>

#define VB_DEVICE "/dev/vb"

#define VB_REQ_CREATE_POOL 0xC0144201u    /* VB_POOL_CREATE_S */
#define VB_REQ_DESTROY_POOL 0xC0044202u   /* uint32_t pool */
#define VB_REQ_GET_BLOCK 0xC0144203u      /* VB_BLOCK_REQUEST_S */
#define VB_REQ_RELEASE_BLOCK 0xC0044204u  /* uint32_t handle */
#define VB_REQ_HANDLE_TO_PHYS 0xC0044205u /* uint32_t handle in, physical address out */
#define VB_REQ_HANDLE_TO_POOL 0xC0044206u /* uint32_t handle in, pool out */
#define VB_REQ_INIT 0x00004207u
#define VB_REQ_EXIT 0x00004208u
#define VB_REQ_GET_CONF 0x80444209u    /* VB_CONF_S */
#define VB_REQ_SET_CONF 0x4044420Au    /* VB_CONF_S */
#define VB_REQ_POOL_INFO 0xC010420Bu   /* VB_POOL_INFO_S */
#define VB_REQ_POOL_IN_USE 0xC004420Cu /* uint32_t pool in, in-use flag out */

#define VB_MAX_POOLS 128u
#define VB_MAX_COMMON_POOLS 8u
#define VB_ANY_POOL 0xFFFFFFFFu

typedef struct {
    uint32_t u32PoolId;    /*  0  out; -1 in */
    uint32_t u32BlockSize; /*  4  bytes */
    uint32_t u32BlockCnt;  /*  8 */
    uint32_t u32Minus1;    /* 12  -1 */
    uint32_t u32Zero;      /* 16  0 */
} VB_POOL_CREATE_S;

/** From any pool {-1, size, 0, -1, 1}; from a given pool {pool, 0, 0, -1, 0}. */
typedef struct {
    uint32_t u32PoolId;    /*  0 */
    uint32_t u32BlockSize; /*  4  bytes */
    uint32_t u32Zero;      /*  8  0 */
    uint32_t u32Handle;    /* 12  out; -1 in */
    uint32_t u32AnyPool;   /* 16 */
} VB_BLOCK_REQUEST_S;

typedef struct {
    uint32_t u32PoolId;   /*  0 */
    uint32_t u32PoolSize; /*  4  bytes */
    uint32_t u32PhysAddr; /*  8 */
    uint32_t u32Driver;   /* 12  the driver's */
} VB_POOL_INFO_S;

/** Common pools that VB_Init makes, as the driver reads them. */
typedef struct {
    uint32_t u32MaxPoolCnt; /* 0 */
    struct {
        uint32_t u32BlkSize;
        uint32_t u32BlkCnt;
    } astCommPool[VB_MAX_COMMON_POOLS]; /* 4 */
} VB_CONF_S;

#ifdef __cplusplus
static_assert(sizeof(VB_POOL_CREATE_S) == 20 && sizeof(VB_BLOCK_REQUEST_S) == 20);
static_assert(sizeof(VB_POOL_INFO_S) == 16 && sizeof(VB_CONF_S) == 68);
#endif
#endif
