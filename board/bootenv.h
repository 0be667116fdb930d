#ifndef BOARD_BOOTENV_H
#define BOARD_BOOTENV_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Read one variable of the boot loader's environment from the first flash partition.
 *
 * The environment is searched byte by byte from offset 0x40000 of "/dev/mtd0", over at most 0x40000
 * bytes. The key may match anywhere, also inside another variable's value, and the first match
 * wins. A byte that breaks a partial match is dropped, not tried again as the key's first byte.
 * A value ends at its NUL, at `limit` bytes, or at 255 bytes.
 *
 * The value is taken as a formatting template without arguments: "%%" gives "%". Any other conversion
 * (flags, width, precision, length modifier and conversion character) is left out, because there is
 * nothing to convert; so is a "%" that begins no complete conversion, with what follows it.
 *
 * Prints "err dev file" and a newline when the device cannot be opened, "read err!" when it ends or
 * fails before the search is over. May be called from any thread.
 *
 * @param key    name and "=", for example "ethaddr="; 1 to 255 characters
 * @param limit  bytes of the value to keep, at least 1
 * @param out    receives the value and a NUL; untouched unless the result is 0
 * @param size   bytes that out can hold; a longer value is cut
 * @return 0 when found, else -1
 */
int BOOTENV_GetValue(const char* key, uint32_t limit, char* out, size_t size);

#ifdef __cplusplus
}
#endif

#endif
