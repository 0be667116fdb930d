#ifndef BOARD_GPIOI2C_UAPI_H
#define BOARD_GPIOI2C_UAPI_H

/*
 * Driver of the I2C bus on GPIO lines. One 32-bit word goes by address: device address in bits
 * 24-31, register in bits 16-23, data in the low bits.
 */

#define GPIOI2C_DEVICE "/dev/gpioi2c"
#define GPIOI2C_READ 1u /* leaves the register's value in the low byte */
#define GPIOI2C_WRITE 3u

#endif
