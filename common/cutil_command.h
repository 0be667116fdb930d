#ifndef COMMON_CUTIL_COMMAND_H
#define COMMON_CUTIL_COMMAND_H

/** Commands over a stream or pipe: a 32-bit command, the 32-bit length of the data, the data. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Write a command: the header in one write, the data, if any, in a second. A partial write is a failure. A
 * closed pipe raises SIGPIPE as for any write.
 *
 * @param fd  any descriptor
 * @return 0; -1 with a line on standard output: for descriptor -1, for a negative length (nothing is
 *         written) and for a write that did not take all
 */
int CUTIL_SendCommand(int fd, uint32_t command, int32_t length, const void* data);

#ifdef __cplusplus
}
#endif

#endif
