#ifndef COMMON_CCONFD_H
#define COMMON_CCONFD_H

/**
 * Client of the configuration daemon. The daemon holds the device's settings, changes them for its clients
 * and notifies them of changes.
 *
 * The daemon listens on a Unix-domain stream socket. Both sides send frames: a 32-bit command, the
 * 32-bit length of the data, the data (the framing of cutil_command.h), integers in the byte order of the
 * machine, at most CCONFD_FRAME_SIZE bytes of data.
 *
 *     command        data                           sent by
 *     1 get          key                            client
 *     2 set          key, a zero byte, value        client
 *     3 changed      key                            client: has changed this itself
 *     4 watch        start of keys, may be empty    client: wants notices
 *     n | 1 << 31    32-bit status, then, for a     daemon: the reply to command n
 *                    get, the value
 *     5 notice       key, may be empty              daemon: has changed; empty: anything may have
 *
 * Every request has one reply, in the order of the requests; notices may stand between. A client has one
 * watch: a second one replaces the first. A notice goes to every client that watches the key, also to the one
 * that made the change. A status is 0, -2 for a key that the daemon does not have, another negative number
 * for what it refuses. A key is 1 to 255 bytes,
 * by custom a file, a colon and a key of that file, "/etc/stream.conf:stream_1_port". A value is at most
 * 2,047 bytes. Neither holds a control character; neither is terminated in a frame.
 *
 * A client has no lock: one thread at a time. It waits no longer than its limit and, to connect, a second
 * more, whatever becomes of the wall clock; no signal is raised when the daemon ends. The client closes the
 * connection to a daemon that breaks the protocol.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CCONFD_PATH "/var/confd.sock"
#define CCONFD_FRAME_SIZE 102400
#define CCONFD_KEY_SIZE 256    /**< with the terminator */
#define CCONFD_VALUE_SIZE 2048 /**< with the terminator */
#define CCONFD_PENDING 8       /**< notices that a client keeps */

enum CCONFD_COMMAND {
    CCONFD_COMMAND_GET = 1,
    CCONFD_COMMAND_SET = 2,
    CCONFD_COMMAND_CHANGED = 3,
    CCONFD_COMMAND_WATCH = 4,
    CCONFD_COMMAND_NOTICE = 5
};

/** Set in the command of a reply. */
#define CCONFD_REPLY 0x80000000u

/** No answer: no daemon, or it closed, was late or broke the protocol. Callers read the file instead. */
#define CCONFD_NO_ANSWER (-1)
/** The daemon does not have the key. */
#define CCONFD_NO_KEY (-2)
/** The value is longer than the room for it, or than 2,047 bytes. It was received to its end and dropped: the
 * connection stays and the next request is answered in order. */
#define CCONFD_TOO_LONG (-7)
/** A bad argument, nothing was sent; or the daemon refuses. */
#define CCONFD_REFUSED (-22)

/** A client, the caller's own. */
typedef struct {
    int32_t fd;       /* -1 while not connected */
    int32_t limit_s;  /* for an answer, seconds, at least 1; 3 after CCONFD_Init */
    int32_t pause_s;  /* in which no connection is tried, seconds; 5 after CCONFD_Init */
    int32_t watching; /* 1: notices were asked for; negative: refused by a daemon that was restarted */
    int64_t retry_ms; /* monotonic time before which nothing is tried; 0: at once */
    int32_t pending;  /* notices waiting in `notice`, the oldest first */
    char path[108];
    char watched[CCONFD_KEY_SIZE];
    char notice[CCONFD_PENDING][CCONFD_KEY_SIZE];
} CCONFD_CLIENT_S;

/**
 * Prepare a client; nothing is sent yet. The first request connects.
 *
 * @param path  the daemon's socket; null: CCONFD_PATH
 * @return 0; CCONFD_REFUSED for a path of 108 bytes or more: the client never connects
 */
int32_t CCONFD_Init(CCONFD_CLIENT_S* client, const char* path);

/** Close the connection and forget the watch and its notices. The client may be used again; a request
 * connects anew. */
void CCONFD_Close(CCONFD_CLIENT_S* client);

/*
 * Requests. Each connects when the client is not connected. When the daemon has closed the connection, as a
 * restart does, the client connects again and repeats the request, once. After a failure to connect, a late
 * answer or a broken protocol the client closes the connection and answers CCONFD_NO_ANSWER at once until the
 * pause is over; errno then says why: what connect gave, ETIMEDOUT, EPIPE (closed twice), EPROTO (protocol),
 * EAGAIN (in the pause). A failed connect prints the line of QRN_ConnectUDSSocket; a daemon that ends while a
 * request is being sent may cause the line of QRN_SendTCPStream.
 */

/**
 * Ask for a setting.
 *
 * @param value  receives it, terminated; untouched unless 0 is returned
 * @param size   bytes of room
 * @return 0, or one of the four above
 */
int32_t CCONFD_Get(CCONFD_CLIENT_S* client, const char* key, char* value, int32_t size);

/** Have a setting changed. @return 0; CCONFD_NO_ANSWER, CCONFD_NO_KEY or CCONFD_REFUSED */
int32_t CCONFD_Set(CCONFD_CLIENT_S* client, const char* key, const char* value);

/** Report a change that the caller has made in the file itself. @return as CCONFD_Set */
int32_t CCONFD_Changed(CCONFD_CLIENT_S* client, const char* key);

/**
 * Ask for notices of changes; a second call replaces the first. They are asked for again after each new
 * connection; as some may have been lost meanwhile, a notice with an empty key is then put in. When a
 * restarted daemon refuses, CCONFD_NextNotice says so.
 *
 * @param start  how the keys of interest begin; empty: all
 * @return as CCONFD_Set
 */
int32_t CCONFD_Watch(CCONFD_CLIENT_S* client, const char* start);

/**
 * Wait for a notice. When more wait than the client keeps, they become one with an empty key. When the daemon
 * closes the connection the client connects again at once, the next time only after a pause.
 *
 * An event loop waits for reading on `fd` of the record. Before each wait it takes all notices with a time of
 * 0, as some may already have been received, and reads `fd` anew, as it changes with each connection. While
 * `fd` is -1 the loop calls again within `pause_s` seconds. A call with a time of 0 may take `limit_s`
 * seconds when it connects or a notice has begun; a loop sets a smaller one after CCONFD_Init.
 *
 * @param key         receives the key that changed, CCONFD_KEY_SIZE bytes; empty: anything may have
 * @param timeout_ms  0: only what is there. A new connection, or a notice that has begun, may take the
 *                    client's limit on top.
 * @return 1; 0 when the time is up and the daemon is connected; CCONFD_NO_ANSWER when it is not: at once
 *         after a failure to connect, else, in the pause, when the time is up; CCONFD_REFUSED when no notices
 *         were asked for; CCONFD_REFUSED or CCONFD_NO_KEY when a restarted daemon has refused them
 */
int32_t CCONFD_NextNotice(CCONFD_CLIENT_S* client, char* key, int32_t timeout_ms);

#ifdef __cplusplus
}
#endif

#endif
