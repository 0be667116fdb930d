/**
 * What a station and test_audio say to each other over TCP, version 1.
 *
 * Both directions carry messages: a header of 16 bytes, then a body. Numbers are little-endian.
 *
 *   offset  bytes  field
 *        0      4  "TAUD"
 *        4      2  version, 1
 *        6      2  command, AUDIO_WIRE_*
 *        8      4  bytes of the body, 0 to AUDIO_WIRE_MAX_BODY
 *       12      4  number: of a frame, counted from 0 in each direction of a session; of a request, the
 *                  station's own, repeated in the reply
 *
 * The station asks, the camera replies with the command | AUDIO_WIRE_REPLY; a reply's body begins with a
 * signed 32-bit result, 0 or negative.
 *
 *   AUDIO_WIRE_START_ENCODE, _START_DECODE
 *       body: seven signed words: mode (1 encode, 0 decode; that of the command), payload type, sample rate
 * in Hz, microphone flag, microphone, ADC and DAC volume, as StartAudio takes them. A session that runs is
 *       ended first. The result is StartAudio's. In an encode session the camera then sends a
 *       AUDIO_WIRE_FRAME for each encoded frame. In both kinds the station may send frames, which are played.
 *   AUDIO_WIRE_STOP
 *       no body. Ends the session; what waits is dropped. The reply's body is that of AUDIO_WIRE_STATUS.
 *   AUDIO_WIRE_FRAME
 *       body: whole frames of the session's codec. No reply. A frame outside a session is dropped. When a
 *       session ends by itself, the camera says so with AUDIO_WIRE_FRAME | AUDIO_WIRE_REPLY and a result.
 *   AUDIO_WIRE_STATUS
 *       no body. The reply's body is AUDIO_WIRE_STATUS_WORDS words: result 0; 1 while a session runs; frames
 *       sent; frames received; frames dropped because the station was ahead; frames with damage; frames that
 *       wait to be played.
 *
 * One station at a time: another one is sent AUDIO_WIRE_BUSY | AUDIO_WIRE_REPLY with a negative result, and
 * closed. A header that is none of these, or a body of another length, ends the connection; so do a message
 * that takes longer than AUDIO_WIRE_MESSAGE_S to arrive, AUDIO_WIRE_IDLE_S without a message outside a
 * session, and a station that does not take what it is sent for AUDIO_WIRE_SEND_S.
 */
#ifndef FACTORY_AUDIO_WIRE_H
#define FACTORY_AUDIO_WIRE_H

#define AUDIO_WIRE_MAGIC "TAUD"

enum {
    AUDIO_WIRE_VERSION = 1,
    AUDIO_WIRE_HEADER = 16,
    AUDIO_WIRE_MAX_BODY = 102400,
    AUDIO_WIRE_START_WORDS = 7,
    AUDIO_WIRE_STATUS_WORDS = 9,
    AUDIO_WIRE_QUEUE = 64, /* messages that may wait to be played */
    AUDIO_WIRE_QUEUE_BYTES = 256 * 1024,

    AUDIO_WIRE_MESSAGE_S = 10,
    AUDIO_WIRE_IDLE_S = 60,
    AUDIO_WIRE_SEND_S = 3
};

enum {
    AUDIO_WIRE_START_ENCODE = 1,
    AUDIO_WIRE_START_DECODE = 2,
    AUDIO_WIRE_STOP = 3,
    AUDIO_WIRE_FRAME = 4,
    AUDIO_WIRE_STATUS = 5,
    AUDIO_WIRE_BUSY = 6,
    AUDIO_WIRE_REPLY = 0x80
};

#endif
