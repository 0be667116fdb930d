#ifndef BOARD_GPIO_H
#define BOARD_GPIO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * GPIO lines of the chip, through the register-access driver "/dev/hi3516_reg". A line is a group
 * (1 to 10) and a bit. The pins that share a line with another function are switched to GPIO before each
 * access. Failures are one line on standard output; the results of the multiplexing and direction
 * requests are not checked. Safe from several threads as far as the driver is.
 */

/** @return the driver's descriptor, which becomes the caller's; -1 when it cannot be opened */
int open_gpio(void);

/**
 * Make a line an output and drive it.
 *
 * A group outside 1 to 10 is refused silently; a bit of 32 or more (or below 0) has no line.
 *
 * @param value  0 low, else high
 */
void set_gpio(int fd, int32_t group, int32_t bit, int32_t value);

/**
 * Make a line an input and read it.
 *
 * @return the line's mask (1 << bit) when it is high, 0 when it is low, so bit 31 reads as a negative
 *         number; -1 for a negative descriptor (one line on standard output) or another group
 */
int32_t get_gpio(int fd, int32_t group, int32_t bit);

/** Close a descriptor of open_gpio; a negative one is ignored. @return 0 */
int close_gpio(int fd);

#ifdef __cplusplus
}
#endif

#endif
