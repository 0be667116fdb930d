/** System driver "/dev/sys": requests and records. */
#ifndef MPI_SRC_SYS_UAPI_H
#define MPI_SRC_SYS_UAPI_H

#include <stdint.h>

#include "base/mpp_error.h"

#define SYS_DEVICE "/dev/sys"

#define SYS_REQ_INIT 0x00005900u
#define SYS_REQ_EXIT 0x00005901u
#define SYS_REQ_SET_CONF 0x40045902u         /* MPP_SYS_CONF_S */
#define SYS_REQ_GET_CONF 0x80045903u         /* MPP_SYS_CONF_S */
#define SYS_REQ_SET_PTS_BASE 0x40085904u     /* uint64_t */
#define SYS_REQ_SYNC_PTS_BASE 0x40085905u    /* uint64_t */
#define SYS_REQ_GET_CUR_PTS 0x80085906u      /* uint64_t */
#define SYS_REQ_BIND 0x40085907u             /* SYS_BIND_ARG_S: source, destination */
#define SYS_REQ_UNBIND 0x40085908u           /* SYS_BIND_ARG_S: source or null, destination */
#define SYS_REQ_GET_BIND_BY_DEST 0xC0085909u /* SYS_BIND_ARG_S: destination, source to be filled */
#define SYS_REQ_GET_VIRT_REG 0xC004590Au     /* uint32_t: register address in, virtual address out */
#define SYS_REQ_GET_CUSTOMER_ID 0x8001590Bu  /* uint8_t */
#define SYS_REQ_GET_DIE_ID 0x8018590Cu       /* SYS_DIE_ID_S */

/** The driver's own word: alignment of picture lines on this chip. */
typedef struct {
    uint32_t u32AlignWidth; /* 0 */
} MPP_SYS_CONF_S;

typedef struct {
    uint32_t au32Word[6]; /* 0 */
} SYS_DIE_ID_S;

/** The driver reads and fills the records behind the pointers itself. */
typedef struct {
    MPP_CHN_S* pstFirst;  /* 0 */
    MPP_CHN_S* pstSecond; /* 4 */
} SYS_BIND_ARG_S;

#ifdef __cplusplus
static_assert(sizeof(MPP_SYS_CONF_S) == 4 && sizeof(SYS_DIE_ID_S) == 24);
static_assert(sizeof(void*) != 4 || sizeof(SYS_BIND_ARG_S) == 8);
#endif
#endif
