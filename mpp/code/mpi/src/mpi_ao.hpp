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
extern constinit AioPort ao_port;

constexpr int32_t ao_error(uint32_t number) { return MPP_ERROR(HI_ID_AO, number); }

} // namespace zep

// Within an operation: returns what its arguments are refused with.
#define AO_CHECK(...)                                                                                        \
    if (int32_t refused = zep::ao_port.check(__func__, __LINE__, __VA_ARGS__)) return refused

// The condition is told as it stands here, NULL not yet replaced.
#define AO_ASSERT(condition)                                                                                 \
    if (!(condition)) zep::mpp_assert_failed("mpp/code/mpi/src/mpi_ao", __func__, __LINE__, #condition)
