#ifndef COMMON_QRN_UDP_H
#define COMMON_QRN_UDP_H

/**
 * Datagram sockets, most of them on the loopback address 127.0.0.1. Ports are in host byte order. Descriptors
 * returned are the caller's and close on exec. The functions keep no state and may be called from any thread.
 */

#include <netinet/in.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Unbound socket. @return the descriptor; -1 with a line on standard output */
int QRN_OpenLocalUDPCSocket(void);

/** Socket bound to 127.0.0.1:port with address reuse. @return the descriptor; -1 with a line */
int QRN_OpenLocalUDPSSocket(int port);

/** Socket bound to the port on all addresses, without address reuse. @return the descriptor; -1 with a line
 */
int openUDPSSocket(int port);

/**
 * Receive one datagram within a time.
 *
 * @param sender   receives the sender's address; may be null
 * @param seconds, microseconds  time to wait; zero looks once
 * @return bytes received, cut to `length`; 0 when there is none in time; -1 with errno
 */
int QRN_RecvUDPTimeout(int fd, void* buffer, int length, struct sockaddr_in* sender, int seconds,
                       int microseconds);

/**
 * Receive one datagram if one waits.
 *
 * @param port  not used: a datagram from any sender is taken
 * @return bytes received, cut to `length`; 0 when none waits; -1 with a line on standard output
 */
int QRN_RecvLocalUDPData(int fd, int port, void* buffer, int length);

/** Send one datagram to 127.0.0.1:port. @return bytes sent; -1 with a line on standard output */
int QRN_SendLocalUDPData(int fd, int port, const void* buffer, int length);

/** Send one datagram. @return bytes sent; -1 with errno */
int QRN_SendUDPData(int fd, const void* buffer, int length, const struct sockaddr_in* address);

#ifdef __cplusplus
}
#endif

#endif
