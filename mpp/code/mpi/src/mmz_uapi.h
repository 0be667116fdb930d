/** Memory-zone driver "/dev/mmz_userdev": requests and records. */
#ifndef MPI_SRC_MMZ_UAPI_H
#define MPI_SRC_MMZ_UAPI_H

#include <stddef.h>
#include <stdint.h>

#define MMZ_DEVICE "/dev/mmz_userdev"

#define MMZ_REQ_ALLOC 0xC04C6D0Au
#define MMZ_REQ_FREE 0x404C6D0Cu
#define MMZ_REQ_MAP 0xC04C6D14u
#define MMZ_REQ_MAP_CACHED 0xC04C6D15u
#define MMZ_REQ_UNMAP 0xC04C6D16u
#define MMZ_REQ_FLUSH_ALL 0x00006328u
#define MMZ_REQ_FLUSH_RANGE 0x400C6432u /* MMZ_RANGE_S */

#define MMZ_ACCESS_SHARED_RW 0x103u /* bits 0-7 protection 3: read and write; bits 8-19 flags 1: shared */

/** One block; zeroed before use. */
typedef struct {
    uint32_t u32PhysAddr;     /*  0  set on allocation, given on free */
    uint32_t u32Align;        /*  4  0 */
    uint32_t u32Size;         /*  8  bytes */
    uint32_t u32Order;        /* 12  0 */
    uint32_t u32VirtAddr;     /* 16  set on map; a device's whole address */
    uint32_t u32Access;       /* 20 */
    char aszBlockName[16];    /* 24  NUL-terminated */
    char aszZoneName[16];     /* 40  NUL-terminated; empty: default zone */
    uint32_t au32Reserved[5]; /* 56  0 */
} MMZ_BLOCK_S;

typedef struct {
    uint32_t u32PhysAddr; /* 0 */
    uint32_t u32VirtAddr; /* 4 */
    uint32_t u32Size;     /* 8 */
} MMZ_RANGE_S;

#ifdef __cplusplus
static_assert(sizeof(MMZ_BLOCK_S) == 76 && offsetof(MMZ_BLOCK_S, aszBlockName) == 24 &&
              offsetof(MMZ_BLOCK_S, aszZoneName) == 40);
static_assert(sizeof(MMZ_RANGE_S) == 12);
#endif
#endif
