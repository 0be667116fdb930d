#ifndef COMMON_QRN_UDS_H
#define COMMON_QRN_UDS_H

/**
 * Unix-domain stream sockets. Descriptors returned are the caller's and close on exec. A path of 108
 * characters or more does not fit the address record and is refused with ENAMETOOLONG. Failures print one
 * line on standard output. The functions keep no state and may be called from any thread.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** Connect to a listening socket. @return the descriptor; -1 with errno */
int QRN_ConnectUDSSocket(const char* path);

/**
 * Listening socket at a path, backlog 10. Whatever stands at the path is removed first.
 *
 * @return the descriptor; -1 with errno
 */
int QRN_BindUDSSocket(const char* path);

#ifdef __cplusplus
}
#endif

#endif
