/**
 * Noise reducer: suppresses background noise in a mono microphone signal, in place, frame by frame.
 *
 * The signal is cut into blocks of 10 ms, each seen through a 32 ms window that ends with the block; a gain
 * between 0 and 1 is chosen for every spectral line and the last 20 ms are put together again by overlap-add.
 * The gains come from three noise trackers a line and a small recurrent network over 20 (8 kHz) or 26 (16
 * kHz) bands whose coefficients were trained on speech in noise; see bench/dsp/train.
 *
 * Output is the input of 10 ms earlier; 16 kHz signals in frames of 80 points are 15 ms late, because such a
 * frame is half a block. All arithmetic is on integers: equal input gives equal output on every machine.
 * Digital silence stays digital silence, and clean speech passes nearly unchanged.
 */
#ifndef MPP_MPI_AUDIO_ANR_H
#define MPP_MPI_AUDIO_ANR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** State of one channel; about 7 KB. One thread at a time may use it. */
typedef struct ANR_STATE_S ANR_STATE_S;

/**
 * Create a noise reducer.
 *
 * @param rate         8000 or 16000 samples a second
 * @param frame_bytes  length of the frames to come: 160 or 320 bytes, that is 80 or 160 points
 * @return the state, to be given back with ANR_Destroy; null for another rate or length, or without memory
 */
ANR_STATE_S* ANR_Create(int rate, int frame_bytes);

/**
 * Reduce the noise of one frame, in place. Does not allocate or wait; takes about 8 KB of stack.
 *
 * @param anr    from ANR_Create
 * @param frame  as many 16-bit samples as the state was created for
 * @return 0; -1 when an argument is null
 */
int ANR_Process(ANR_STATE_S* anr, int16_t* frame);

/** Forget everything heard: the next frame is treated as the first one. Null is allowed. */
void ANR_Reset(ANR_STATE_S* anr);

/** Give the state back; null is allowed. */
void ANR_Destroy(ANR_STATE_S* anr);

#ifdef __cplusplus
}
#endif
#endif
