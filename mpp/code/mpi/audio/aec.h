/*
 * Acoustic echo canceller: takes the loudspeaker's signal, as it comes back through the room, out of
 * the microphone's.
 *
 * A partitioned-block frequency-domain adaptive filter models the echo path; its step size is that of
 * a diagonal Kalman filter, so it slows down by itself while the near talker speaks. What the filter
 * leaves is attenuated by a short minimum-phase filter, whose gains follow from the filter's own
 * estimate of its error. Where an amplifier clips what it plays, the level is found and the far
 * signal clipped there first. All in fixed point: every target gives the same samples.
 *
 * Delay: none beyond the frame itself. Where the loudspeaker has been silent (zeros) for the length
 * of the tail, the output is the microphone's signal, bit for bit.
 */
#ifndef MPI_AUDIO_AEC_H
#define MPI_AUDIO_AEC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One canceller. Belongs to whoever made it; two threads must not use the same one at a time. */
typedef struct AEC_S AEC_S;

/**
 * Make a canceller, with its one piece of memory (about 130 KiB).
 *
 * @param s32Rate    samples a second: 8000 or 16000
 * @param s32Points  samples a frame: 80, 160, 320 or 480
 * @param s32TailMs  longest echo to be modelled, from the loudspeaker's sample to the last
 *                   reflection: 16 to 128 ms, rounded up to whole blocks of 10 ms (5 ms for
 *                   frames of 80 points at 16000)
 * @return the canceller, freed with AEC_Destroy; null when an argument is outside its range (errno
 *         EINVAL) or memory is short (errno ENOMEM)
 */
AEC_S* AEC_Create(int32_t s32Rate, int32_t s32Points, int32_t s32TailMs);

/**
 * Cancel the echo in one frame. Neither waits nor allocates.
 *
 * @param pstAec    the canceller
 * @param ps16Near  what the microphone took, one frame
 * @param ps16Far   what the loudspeaker played in that time, one frame
 * @param ps16Out   one frame; may be ps16Near, must not overlap it otherwise
 * @return 0; -1 when a pointer is null, nothing is written
 */
int AEC_Process(AEC_S* pstAec, const int16_t* ps16Near, const int16_t* ps16Far, int16_t* ps16Out);

/**
 * Forget the room and everything heard: the next frame is treated as the first one after AEC_Create, with the same
 * rate, frame and tail. For a stream that starts again, or a loudspeaker that was exchanged; a room that changes is
 * followed without it. Neither waits nor allocates; null is ignored.
 */
void AEC_Reset(AEC_S* pstAec);

/** Free a canceller; null is ignored. */
void AEC_Destroy(AEC_S* pstAec);

#ifdef __cplusplus
}
#endif

#endif
