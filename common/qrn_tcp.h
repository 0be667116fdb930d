#ifndef COMMON_QRN_TCP_H
#define COMMON_QRN_TCP_H

/**
 * TCP sockets and whole-message transfer over them. Ports are in host byte order. Descriptors returned are
 * the caller's and close on exec. Each failure prints one line on standard output, unless said otherwise. The
 * functions keep no state and may be called from any thread.
 */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Listening socket on all addresses, backlog 10, with address reuse and a send buffer of 4 MiB as far as the
 * system grants it.
 *
 * @return the descriptor, or -1
 */
int TSER_InitServer(int port);

/**
 * Begin a connection without waiting for it.
 *
 * A dotted host is not looked up; the lookup of any other waits. Failures of the descriptor flags and of the
 * connect are printed on standard error.
 *
 * @param fd    receives the non-blocking descriptor before the outcome is known; after a failed
 *              connect it holds the number of a closed one. Untouched by earlier failures.
 * @return 0 connected; 1 in progress, done when the socket becomes writable; -1
 */
int QRN_ASyncConnectTCPSocket(int* fd, const char* host, int port);

/**
 * Connect and wait for it. The host is looked up.
 *
 * @return the descriptor, or -1
 */
int QRN_ConnectTCPSocket(const char* host, int port);

/**
 * Send a whole buffer. Waits while the socket is full. No signal is raised when the peer has closed.
 *
 * @param limit_s  seconds, 0 for none. Checked after each transfer, to the second: the call gives up within a
 *                 second after it, and a send that blocks for ever is not interrupted.
 * @return the length; -1 when the time is up; -2 on an error, which is printed, and when nothing can be sent;
 *         -4 for a null buffer or length 0; -3 for a negative descriptor; a negative length as
 *         it is. Arguments are checked in this order.
 */
int QRN_SendTCPStream(int fd, const void* buffer, int length, int limit_s);

/**
 * Receive exactly `length` bytes. The rest as for QRN_SendTCPStream, but nothing is printed.
 *
 * @return as there; -2 also when the peer has closed
 */
int QRN_RecvTCPStream(int fd, void* buffer, int length, int limit_s);

#ifdef __cplusplus
}
#endif

#endif
