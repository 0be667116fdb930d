/** Media log driver "/dev/log": requests and records. */
#ifndef MPI_SRC_LOG_UAPI_H
#define MPI_SRC_LOG_UAPI_H

#include <stdint.h>

#define LOG_DEVICE "/dev/log"

#define LOG_REQ_SET_LEVEL 0x40184C00u /* LOG_LEVEL_CONF_S */
#define LOG_REQ_GET_LEVEL 0xC0184C01u /* LOG_LEVEL_CONF_S */
#define LOG_REQ_SET_WAIT 0x40044C03u  /* uint32_t */

/** Level of one module's messages, as the driver keeps it. */
typedef struct {
    int32_t s32ModId; /* 0  MOD_ID */
    int32_t s32Level; /* 4 */
    char aszName[16]; /* 8 */
} LOG_LEVEL_CONF_S;

#ifdef __cplusplus
static_assert(sizeof(LOG_LEVEL_CONF_S) == 24);
#endif
#endif
