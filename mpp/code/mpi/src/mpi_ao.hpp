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
    SlotDescriptors slots;
    AoChannel channels[AIO_SLOTS];
    std::atomic<bool> initialised = false;
};
extern constinit AoState ao;

constexpr int32_t ao_error(uint32_t number) { return MPP_ERROR(HI_ID_AO, number); }

// 0, or the code of the first argument out of range, reported in the operation's name.
int32_t ao_check(const char* function, int line, int32_t device, int32_t channel = 0);

// A request on the slot's descriptor, opened if need be.
int32_t ao_request(size_t slot, uint32_t code, void* argument = nullptr);

// The slot's descriptor, or -1.
int ao_descriptor(size_t slot);

} // namespace zep

#define AO_CHECK(...)                                                                                        \
    if (int32_t refused = zep::ao_check(__func__, __LINE__, __VA_ARGS__)) return refused

#define AO_ASSERT(condition) MPP_ASSERT("mpp/code/mpi/src/mpi_ao", condition)
