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

constexpr uint32_t kNoPool = UINT32_MAX;

struct AiState {
    AiChannel channels[AIO_SLOTS];
    std::atomic<uint32_t> pools[AIO_MAX_DEVICES] = {kNoPool, kNoPool, kNoPool}; // mapped for the device
    std::atomic<bool> initialised = false;
};
extern constinit AiState ai; // all zeros at the start, so it takes no room in the file
extern constinit AioDriver ai_driver;

// AioDriver::explain of audio input.
void explain_ai(Operation operation, Refusal refusal, int32_t device, int32_t channel,
                const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& current);

} // namespace zep

// Within an operation: returns what its arguments are refused with.
#define AI_CHECK(...)                                                                                        \
    if (int32_t refused = zep::ai_driver.check(THIS_OPERATION, __VA_ARGS__)) return refused
