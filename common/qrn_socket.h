#ifndef COMMON_QRN_SOCKET_H
#define COMMON_QRN_SOCKET_H

/** What all kinds of sockets share. The functions keep no state and may be called from any thread. */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Size of a socket's buffer.
 *
 * @param option  SO_SNDBUF or SO_RCVBUF
 * @return bytes, the kernel's own overhead included; 0 on a failure, which is printed on standard output
 */
int QRN_GetSocketBufferSize(int fd, int option);

/**
 * Raise a socket's buffer towards a size; a size that the system refuses is halved towards the present one.
 *
 * @return the size before the change when it was raised; else the present size
 */
int QRN_SetSocketBufferSize(int fd, int wanted, int option);

/** Make a descriptor non-blocking. @return its new status flags; -1 with errno */
int QRN_SetNonBlocking(int fd);

/**
 * Tell a dotted address from a host name by its look: digits and exactly three dots, no more than three
 * digits in a row. "1..2.3" and "999.1.1.1" pass.
 *
 * @param length  characters of `text` to look at
 * @return 1 or 0; 0 for a length below 1
 */
int QRN_IsIPv4Address(const char* text, int length);

#ifdef __cplusplus
}
#endif

#endif
