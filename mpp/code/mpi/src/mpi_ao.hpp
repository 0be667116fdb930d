// Audio output's channels, shared by its sources.
#pragma once

#include "mpi/src/mpi_aio.hpp"
#include "mpi/src/mpi_ao.h"

namespace zep {

struct AoChannel {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    ResampleStage resample;
};

struct AoState {
    AoChannel channels[AIO_SLOTS];
    std::atomic<bool> initialised = false;
};
extern constinit AoState ao; // all zeros at the start, so it takes no room in the file
extern constinit AioDriver ao_driver;

// AioDriver::explain of audio output.
void explain_ao(Operation operation, Refusal refusal, int32_t device, int32_t channel,
                const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& current);

inline constexpr char kAoSource[] = "mpp/code/mpi/src/mpi_ao"; // in failed assertions

} // namespace zep

// Within an operation: returns what its arguments are refused with.
#define AO_CHECK(...)                                                                                        \
    if (int32_t refused = zep::ao_driver.check(THIS_OPERATION, __VA_ARGS__)) return refused
