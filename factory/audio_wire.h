/** Numbers of the messages between a station and test_audio, version 1. zep-audio(7) is the protocol. */
#ifndef FACTORY_AUDIO_WIRE_H
#define FACTORY_AUDIO_WIRE_H

#define AUDIO_WIRE_MAGIC "TAUD"

enum {
    AUDIO_WIRE_VERSION = 1,
    AUDIO_WIRE_HEADER = 16,              /* bytes: magic, version, command, length of the body, number */
    AUDIO_WIRE_MAX_BODY = 102400,        /* bytes */
    AUDIO_WIRE_START_WORDS = 7,          /* of a start's body, in StartAudio's order */
    AUDIO_WIRE_STATUS_WORDS = 9,         /* of the replies to stop and status */
    AUDIO_WIRE_QUEUE = 64,               /* messages that may wait to be played, */
    AUDIO_WIRE_QUEUE_BYTES = 256 * 1024, /* and their bytes */

    /* Limits in seconds: a message arrives, a message comes outside a session, the station takes a byte. */
    AUDIO_WIRE_MESSAGE_S = 10,
    AUDIO_WIRE_IDLE_S = 60,
    AUDIO_WIRE_SEND_S = 3
};

/* Commands. A reply has the bit AUDIO_WIRE_REPLY set and begins with a signed result. */
enum {
    AUDIO_WIRE_START_ENCODE = 1,
    AUDIO_WIRE_START_DECODE = 2,
    AUDIO_WIRE_STOP = 3,
    AUDIO_WIRE_FRAME = 4, /* in both directions; as a reply: the session has ended by itself */
    AUDIO_WIRE_STATUS = 5,
    AUDIO_WIRE_BUSY = 6, /* as a reply only */
    AUDIO_WIRE_REPLY = 0x80
};

#endif
