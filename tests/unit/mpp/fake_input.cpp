#include "tests/unit/mpp/fake_input.hpp"

#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_sys.h"

using codec_test::FakeInput;

extern "C" {

int32_t __real_HI_MPI_SYS_GetBindByDest(MPP_CHN_S*, MPP_CHN_S*);
int32_t __real_HI_MPI_AI_GetFrame(int32_t, int32_t, AUDIO_FRAME_S*, AEC_FRAME_S*, uint32_t);
int32_t __real_HI_MPI_AI_ReleaseFrame(int32_t, int32_t, AUDIO_FRAME_S*, AEC_FRAME_S*);

int32_t __wrap_HI_MPI_SYS_GetBindByDest(MPP_CHN_S* destination, MPP_CHN_S* source)
{
    FakeInput* fake = FakeInput::current;
    return fake ? fake->look_up(*destination, *source) : __real_HI_MPI_SYS_GetBindByDest(destination, source);
}

int32_t __wrap_HI_MPI_AI_GetFrame(int32_t device, int32_t channel, AUDIO_FRAME_S* frame, AEC_FRAME_S* aec,
                                  uint32_t block)
{
    FakeInput* fake = FakeInput::current;
    return fake ? fake->take(device, channel, *frame, block)
                : __real_HI_MPI_AI_GetFrame(device, channel, frame, aec, block);
}

int32_t __wrap_HI_MPI_AI_ReleaseFrame(int32_t device, int32_t channel, AUDIO_FRAME_S* frame, AEC_FRAME_S* aec)
{
    FakeInput* fake = FakeInput::current;
    return fake ? fake->release() : __real_HI_MPI_AI_ReleaseFrame(device, channel, frame, aec);
}
}
