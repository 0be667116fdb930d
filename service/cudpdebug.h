#ifndef SERVICE_CUDPDEBUG_H
#define SERVICE_CUDPDEBUG_H

/**
 * Debug lines to a remote console: each message is one UDP datagram, with "[tag] " in front if there is a
 * tag. An object that is not enabled prints nothing at no cost. An object has no lock: one thread at a time
 * prints through it; several objects do not disturb each other.
 */

#include <netinet/in.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CUDPDEBUG_MESSAGE_SIZE 102400

typedef struct CUDPDEBUG CUDPDEBUG;

struct CUDPDEBUG {
    int32_t sock;                         /* -1 when closed */
    char ip[32];                          /* destination, dotted decimal */
    uint16_t port;                        /* destination, host order */
    char tag[256];                        /* empty for none */
    char message[CUDPDEBUG_MESSAGE_SIZE]; /* the last message */
    struct sockaddr_in addr;              /* destination */
    /* Print operation: CUDPDEBUG_Printf, or one that does nothing and returns 0. */
    int (*Printf)(CUDPDEBUG* log, const char* format, ...) __attribute__((format(printf, 2, 3)));
    int (*Close)(CUDPDEBUG* log);
};

/**
 * Fill in an object and, if enabled, open its socket.
 *
 * @param enable  below 1: nothing is opened, printing does nothing
 * @param ip      dotted decimal address, cut to 31 characters
 * @param port    in host order
 * @param tag     put in front as it is, cut to 255 characters; null for none
 * @return 0; -1 when no socket can be opened: errno says why, and a line on standard error
 */
int CUDPDEBUG_Init(CUDPDEBUG* log, int enable, const char* ip, uint16_t port, const char* tag);

/**
 * Send one message, cut to the message buffer; no line end is added. The kernel carries up to 65,507 bytes.
 *
 * @return bytes sent; 0 for an empty message, negative for one that cannot be formatted, nothing is sent
 *         then; -1 when it could not be sent: errno says why, and a line on standard error
 */
int CUDPDEBUG_Printf(CUDPDEBUG* log, const char* format, ...) __attribute__((format(printf, 2, 3)));

/**
 * Close an open socket; the object may be filled in again.
 *
 * @return the result of close; for a closed object its descriptor, -1
 */
int CUDPDEBUG_Close(CUDPDEBUG* log);

#ifdef __cplusplus
}
#endif

#endif
