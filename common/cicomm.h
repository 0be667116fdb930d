#ifndef COMMON_CICOMM_H
#define COMMON_CICOMM_H

/**
 * Messages between the processes of the device: one datagram each over the loopback address, every process at
 * a port of its own.
 *
 * A message is a header of 32 bytes and up to 102,368 bytes of payload. The header's integers are 32 bits
 * wide, in the byte order of the machine:
 *
 *      0  "ICOM"
 *      4  version, 1
 *      8  command
 *     12  sender's port, 0 for a client
 *     16  length of the payload
 *     20  12 bytes of zero
 *
 * The kernel carries datagrams up to 65,507 bytes, so a payload above 65,475 passes the length check and
 * is refused when sent (-4).
 *
 * The length field of a received header is what the sender claims. Any process of the device can send any
 * bytes: compare it with what arrived before the payload is used, as CICOMM_RecvChecked does.
 *
 * An endpoint has no lock: one thread sends and one receives at a time.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CICOMM_HEADER_SIZE 32
#define CICOMM_MESSAGE_SIZE 102400
#define CICOMM_PAYLOAD_SIZE (CICOMM_MESSAGE_SIZE - CICOMM_HEADER_SIZE)
#define CICOMM_VERSION 1

/** An endpoint, the caller's own. It is 200 KiB large: not for the stack. */
typedef struct CICOMM CICOMM;

struct CICOMM {
    int32_t fd;                                /* -1 when closed */
    uint32_t port;                             /* own port; 0: a client, unbound */
    uint8_t send_message[CICOMM_MESSAGE_SIZE]; /* the last message sent */
    uint8_t recv_message[CICOMM_MESSAGE_SIZE]; /* the last message received */
    int (*Close)(CICOMM* endpoint);            /* the functions below, filled by CICOMM_Init */
    int (*GetSocket)(const CICOMM* endpoint);
    int (*Send)(CICOMM* endpoint, uint32_t command, int port, const void* payload, int32_t length);
    int32_t (*Recv)(CICOMM* endpoint, uint32_t* command);
    const uint8_t* (*GetRecvHeader)(const CICOMM* endpoint);
    const uint8_t* (*GetRecvData)(const CICOMM* endpoint);
};

/**
 * Open an endpoint.
 *
 * @param port  own port on 127.0.0.1, shared with others that ask for it; 0 for a client
 * @return 0; -1 with a line on standard output, the endpoint is closed then
 */
int CICOMM_Init(CICOMM* endpoint, uint32_t port);

/**
 * Send a message. A full socket is retried for 3 s.
 *
 * @param port     receiver's port on 127.0.0.1
 * @param payload  may be null when `length` is 0, and may lie in the endpoint itself
 * @return bytes sent, header included; -1 for a null payload with a length; -2 for a length below 0 or above
 *         CICOMM_PAYLOAD_SIZE; -4 when it could not be sent. Each failure prints a line on standard output.
 */
int CICOMM_Send(CICOMM* endpoint, uint32_t command, int port, const void* payload, int32_t length);

/**
 * Wait for a message.
 *
 * @param command  receives the command field; may be null
 * @return the length field of the header as it came, which may be any number, and that of an older message
 * when fewer bytes than a header came; -1 when closed, and with a line on standard output when nothing could
 * be received or the datagram was empty
 */
int32_t CICOMM_Recv(CICOMM* endpoint, uint32_t* command);

/**
 * Wait for a message and check it: header complete, "ICOM", version, and a length that arrived.
 *
 * @param command  receives the command field of a good message; may be null
 * @return payload bytes, 0..CICOMM_PAYLOAD_SIZE, found at CICOMM_GetRecvData; -1 as CICOMM_Recv, and with a
 * line on standard output for a bad message
 */
int32_t CICOMM_RecvChecked(CICOMM* endpoint, uint32_t* command);

/**
 * Check a message.
 *
 * @param message   the bytes of one datagram
 * @param received  their number
 * @return payload bytes, at most received - CICOMM_HEADER_SIZE; -1 for a bad message
 */
int32_t CICOMM_CheckMessage(const void* message, int32_t received);

/** Close an open endpoint. @return the result of close; the descriptor (negative) of a closed one */
int CICOMM_Close(CICOMM* endpoint);

/** @return the endpoint's descriptor, -1 when closed */
int CICOMM_GetSocket(const CICOMM* endpoint);

/** @return the last message received; stays until the next receive */
const uint8_t* CICOMM_GetRecvHeader(const CICOMM* endpoint);

/** @return its payload */
const uint8_t* CICOMM_GetRecvData(const CICOMM* endpoint);

#ifdef __cplusplus
}
#endif

#endif
