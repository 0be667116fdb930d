// Audio input's channels, shared by its sources.
#pragma once

#include "mpi/audio/anr.h"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_aio.hpp"

namespace zep {

// Noise reduction of one channel; under the channel's lock. Only enabling it names the reducer, the rest goes
// through the pointers: a program that never does is linked without its tables (100 KiB).
struct NoiseStage {
    ANR_STATE_S* state = nullptr; // enabled while it is there
    uint32_t points = 0;
    int (*process)(ANR_STATE_S*, int16_t*) = nullptr;
    void (*destroy)(ANR_STATE_S*) = nullptr;

    void disable()
    {
        if (state) destroy(state);
        *this = {};
    }
};

struct AiChannel {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    NoiseStage noise;
    ResampleStage resample;
};

struct AiState {
    SlotDescriptors slots;
    AiChannel channels[AIO_SLOTS];
    std::atomic<uint32_t> pools[AIO_MAX_DEVICES] = {};
    std::atomic<bool> initialised = false;
};
extern constinit AiState ai;

constexpr int32_t ai_error(uint32_t number) { return MPP_ERROR(HI_ID_AI, number); }

// 0, or the code of the first argument out of range, reported in the operation's name.
int32_t ai_check(const char* function, int line, int32_t device, int32_t channel = 0);

// A request on the slot's descriptor, opened if need be.
int32_t ai_request(size_t slot, uint32_t code, void* argument = nullptr);

// The slot's descriptor, or -1.
int ai_descriptor(size_t slot);

} // namespace zep

#define AI_CHECK(...)                                                                                        \
    if (int32_t refused = zep::ai_check(__func__, __LINE__, __VA_ARGS__)) return refused
