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

/**
 * Open the register-access driver.
 *
 * @return its descriptor, which becomes the caller's to close; -1 when it cannot be opened, after one line on
 *         standard output
 */
int open_gpio(void);

/**
 * Make a line an output and drive it.
 *
 * A group outside 1 to 10 is refused silently; a bit of 32 or more (or below 0) has no line. A negative
 * descriptor is one line on standard output. Whether the driver did it is not reported: save_gpio shows it.
 *
 * @param fd     of open_gpio; stays the caller's
 * @param group  bank of the line, 1 to 10
 * @param bit    of the bank, 0 to 7 on this chip
 * @param value  0 low, else high
 */
void set_gpio(int fd, int32_t group, int32_t bit, int32_t value);

/**
 * Make a line an input and read it.
 *
 * @param fd     of open_gpio; stays the caller's
 * @param group  bank of the line, 1 to 10
 * @param bit    of the bank, 0 to 7 on this chip
 * @return the line's mask (1 << bit) when it is high, 0 when it is low, so bit 31 reads as a negative
 *         number; -1 for a negative descriptor (one line on standard output), another group, or when the
 *         driver refuses to read
 */
int32_t get_gpio(int fd, int32_t group, int32_t bit);

/** The state of a line: what a test changes and puts back. */
typedef struct {
    int32_t group;
    int32_t bit;
    int32_t output;     /* 1 output, 0 input */
    int32_t level;      /* 0 or 1; of an input: what its pin has */
    uint32_t multiplex; /* of the pin's multiplexing register the bits that an access to the line changes */
} GPIO_STATE_S;

/**
 * Read the state of a line without changing anything.
 *
 * @param state  receives the state; untouched unless the result is 0
 * @return 0; -1 for a negative descriptor (one line on standard output), a line that does not exist
 *         (groups 1 to 10, bits 0 to 7), or when the driver refuses, with its errno
 */
int32_t save_gpio(int fd, int32_t group, int32_t bit, GPIO_STATE_S* state);

/**
 * Give a line the state that save_gpio found: level and direction, then the pin's multiplexing.
 *
 * The output latch behind an input cannot be read. A line that was an input and is an output now leaves in its
 * latch the level that its pin had.
 *
 * @return 0; -1 as save_gpio: the other steps have been tried then
 */
int32_t restore_gpio(int fd, const GPIO_STATE_S* state);

/** Close a descriptor of open_gpio; a negative one is ignored. @return 0 */
int close_gpio(int fd);

#ifdef __cplusplus
}
#endif

#endif
