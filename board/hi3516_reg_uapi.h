#ifndef BOARD_HI3516_REG_UAPI_H
#define BOARD_HI3516_REG_UAPI_H

#include <stddef.h>
#include <stdint.h>

/* Register-access driver: read-write requests of type 'R' on a record of address and value. */

#define HI3516_REG_DEVICE "/dev/hi3516_reg"
#define HI3516_REG_SET 0xC0085201u   /* set the bits of value in the register at address */
#define HI3516_REG_CLEAR 0xC0085202u /* clear them */
#define HI3516_REG_READ 0xC0085203u  /* value receives the register's contents */

typedef struct {
    uint32_t address; /* 0 */
    uint32_t value;   /* 4 */
} HI3516_REG_S;

#ifdef __cplusplus
static_assert(sizeof(HI3516_REG_S) == 8 && offsetof(HI3516_REG_S, value) == 4);
#endif

#endif
