#ifndef BOARD_GPIOI2C_H
#define BOARD_GPIOI2C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Devices on the bit-banged I2C bus, through "/dev/gpioi2c". Device addresses, registers and values
 * are 8 bits wide: higher bits are cut, so that they cannot reach another field of the request.
 */

/**
 * Open the driver.
 *
 * @return its descriptor, which becomes the caller's to close; -1 when it cannot be opened, after one line on
 *         standard output
 */
int open_gpioi2c(void);

/**
 * Write one register. Waits for the bus.
 *
 * @param fd      of open_gpioi2c; stays the caller's
 * @param device  address in its 8-bit form
 * @return the driver's result: -1 with errno when it refuses, as it does for an absent device; -1 for a negative
 *         descriptor, after one line on standard output
 */
int32_t write_gpioi2c(int fd, uint32_t device, uint32_t reg, uint32_t value);

/**
 * Read one register. Waits for the bus.
 *
 * @param fd      of open_gpioi2c; stays the caller's
 * @param device  address in its 8-bit form
 * @return 0 to 255; -1 for a negative descriptor (one line on standard output) or when the driver refuses,
 *         as it does for an absent device
 */
int32_t read_gpioi2c(int fd, uint32_t device, uint32_t reg);

/** Close a descriptor of open_gpioi2c; a negative one is ignored. @return 0 */
int close_gpioi2c(int fd);

#ifdef __cplusplus
}
#endif

#endif
