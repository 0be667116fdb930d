#ifndef FACTORY_START_AUDIO_H
#define FACTORY_START_AUDIO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Where the path runs; device 2 is the one that is wired to the codec chip. */
enum {
    AUDIO_PATH_DEVICE = 2,
    AUDIO_PATH_CHANNEL = 0, /* of input and output; encoder and decoder channel too */
    AUDIO_PATH_INPUT_CHANNELS = 2,
    AUDIO_PATH_ENCODE_POINTS = 160, /* points of a frame in an encode session */
    AUDIO_PATH_DECODE_POINTS = 320
};

/**
 * Build the whole audio path: codec driver loaded anew, platform and pools started, codec chip set, input
 * device bound to an encoder channel, decoder channel bound to the output device. Waits for what it starts.
 *
 * What ran before is shut down first. A failing step prints its message on standard output and ends the call;
 * what was started until then stays, for the next call to shut down.
 *
 * @param s32Mode         1 encode session: frames of 160 points, 40 buffered; 0 decode session: 320 and 30
 * @param s32PayloadType  PT_* of the platform
 * @param s32SampleRate   Hz: 8000 11025 12000 16000 22050 24000 32000 44100 48000
 * @param s32MicIn        1 selects the microphone and sets its volume; others leave both alone
 * @param s32MicVolume    the low five bits are used
 * @param s32AdcVolume, s32DacVolume  the low seven bits are used
 * @return 0; the platform's code when the input cannot be bound or the decoder channel not made; else -1
 */
int32_t StartAudio(int32_t s32Mode, int32_t s32PayloadType, int32_t s32SampleRate, int32_t s32MicIn,
                   int32_t s32MicVolume, int32_t s32AdcVolume, int32_t s32DacVolume);

/**
 * Shut the path and the platform down, also after a StartAudio that failed half-way. No other thread may send
 * or wait on the path. Failures are ignored: what was not started cannot be stopped.
 */
void StopAudio(void);

/**
 * Stop the output channel: a call that waits for room returns, and later frames are refused. Ends a thread's
 * sending before StopAudio.
 */
void CutAudioOutput(void);

/** Payload type of the last StartAudio. @return it; -1 before the first */
int32_t GetAudioPayloadType(void);
/** Microphone flag of the last StartAudio. @return it; -1 before the first */
int32_t GetAudioMicIn(void);

#ifdef __cplusplus
}
#endif
#endif
