/*
 * Microphone to loudspeaker through a codec: capture, encode, decode, play.
 *
 *     media_loop [SECONDS]
 *
 * On the virtual camera:
 *
 *     vcam new cam
 *     vcam run cam --mic speech.wav --speaker heard.wav \
 *         --bind media_loop -- /run/bin/media_loop 5
 */
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_ao.h"
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_vb.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum {
    DEVICE = 2,
    CHANNEL = 0,
    RATE = 8000,
    POINTS = 160,
    FRAMES_A_SECOND = RATE / POINTS
};

static int check(const char* what, int32_t result)
{
    if (result != 0)
        fprintf(stderr, "media_loop: %s: %#x\n", what, (unsigned)result);
    return result;
}
#define TRY(call)                                                          \
    if (check(#call, call) != 0) return -1

static int start_platform(void)
{
    VB_CONF_S pools;
    MPP_SYS_CONF_S conf = {16};
    memset(&pools, 0, sizeof pools);
    HI_MPI_SYS_Exit(); /* whatever an earlier program has left */
    HI_MPI_VB_Exit();
    TRY(HI_MPI_VB_SetConf(&pools));
    TRY(HI_MPI_VB_Init());
    TRY(HI_MPI_SYS_SetConf(&conf));
    TRY(HI_MPI_SYS_Init());
    return 0;
}

static int start_devices(void)
{
    AIO_ATTR_S attr = {
        RATE, AUDIO_BIT_WIDTH_16, 0, AUDIO_SOUND_MONO, 1, 30, POINTS, 2, 1};
    TRY(HI_MPI_AI_SetPubAttr(DEVICE, &attr));
    TRY(HI_MPI_AI_Enable(DEVICE));
    TRY(HI_MPI_AI_EnableChn(DEVICE, CHANNEL));
    TRY(HI_MPI_AO_SetPubAttr(DEVICE, &attr));
    TRY(HI_MPI_AO_Enable(DEVICE));
    TRY(HI_MPI_AO_EnableChn(DEVICE, CHANNEL));
    return 0;
}

static int start_codecs(void)
{
    uint32_t codec[4] = {0};
    AENC_CHN_ATTR_S encode = {PT_G711A, 30, codec};
    ADEC_CHN_ATTR_S decode = {PT_G711A, 5, ADEC_MODE_PACK, codec};
    MPP_CHN_S input = {HI_ID_AI, DEVICE, CHANNEL},
              encoder = {HI_ID_AENC, 0, 0};
    MPP_CHN_S decoder = {HI_ID_ADEC, 0, 0},
              output = {HI_ID_AO, DEVICE, CHANNEL};
    TRY(HI_MPI_AENC_CreateChn(0, &encode));
    TRY(HI_MPI_ADEC_CreateChn(0, &decode));
    TRY(HI_MPI_SYS_Bind(&input, &encoder));
    TRY(HI_MPI_SYS_Bind(&decoder, &output));
    return 0;
}

/* Each frame that the encoder hands out goes to the decoder; between the
 * two it is what a network would carry. */
static int run(int frames)
{
    AENC_STREAM_HEADER_S stream;
    unsigned long bytes = 0;
    for (int i = 0; i < frames; ++i) {
        TRY(HI_MPI_AENC_GetStream(0, &stream, 1));
        bytes += stream.u32Len;
        TRY(HI_MPI_ADEC_SendStream(0, &stream, 1));
        TRY(HI_MPI_AENC_ReleaseStream(0, &stream));
    }
    printf("%d frames, %lu bytes of G.711\n", frames, bytes);
    return 0;
}

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? atoi(argv[1]) : 5;
    if (start_platform() != 0 || start_devices() != 0 ||
        start_codecs() != 0)
        return 1;
    const int result = run(seconds * FRAMES_A_SECOND);
    HI_MPI_AENC_DestroyChn(0);
    HI_MPI_ADEC_DestroyChn(0);
    return result != 0;
}
