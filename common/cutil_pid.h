#ifndef COMMON_CUTIL_PID_H
#define COMMON_CUTIL_PID_H

/** Process-id files. The functions keep no state and may be called from any thread. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Read the number in a process-id file (white space, sign and digits as "%d" reads them).
 *
 * @return the number; -1 when the file cannot be opened, which is logged, and when it does not
 *         begin with a number
 */
int32_t CUTIL_ReadPidFile(const char* path);

/**
 * Write the calling process's id and a line end into a file, which is made or emptied first.
 *
 * @return 1; 0 when the file cannot be made or written, which is logged
 */
int CUTIL_WritePidFile(const char* path);

#ifdef __cplusplus
}
#endif

#endif
