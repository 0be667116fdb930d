#ifndef COMMON_CSYSMGR_H
#define COMMON_CSYSMGR_H

/**
 * Packets to the device's system manager: one datagram to its port on 127.0.0.1, "SYSP", 32 bits of zero, a
 * 32-bit command in the byte order of the machine, and up to 256 bytes of data.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CSYSMGR_PORT 4100
#define CSYSMGR_HEADER_SIZE 12
#define CSYSMGR_DATA_SIZE 256

/**
 * Send a packet. May be called from any thread.
 *
 * @param data    may be null when `length` is 0
 * @param length  0..CSYSMGR_DATA_SIZE
 * @return 0, also when the send fails, which prints a line on standard output and leaves its errno; a packet
 *         that was sent leaves errno as it was. -1 for a bad argument and, with a line, when no socket can be
 *         made. A socket that gets descriptor 0 is not used and stays open.
 */
int CSYSMGR_SendPacket(uint32_t command, const void* data, int32_t length);

#ifdef __cplusplus
}
#endif

#endif
