// What audio input and output share: slots with their descriptors, resampling by kind.
#pragma once

#include "mpi/audio/resampler.h"
#include "mpi/src/mpi_aio.h"
#include "base/mpp_lock.hpp"
#include "base/mpp_report.hpp"

#include <atomic>
#include <cstdint>

namespace zep {

constexpr uint32_t kAioMaxPoints = AUDIO_MAX_POINTS;
constexpr uint32_t kAioMinRate = 8000, kAioMaxRate = 48000;

inline bool valid_device(int32_t device) { return uint32_t(device) < AIO_MAX_DEVICES; }
inline bool valid_channel(int32_t channel) { return uint32_t(channel) < AIO_MAX_CHANNELS; }
inline size_t slot_of(int32_t device, int32_t channel) { return size_t(device * AIO_MAX_CHANNELS + channel); }

// A kind's effect on a number of points or a rate, by integer division downwards.
inline bool valid_kind(uint32_t kind) { return kind >= RESAMPLER_1X2 && kind <= RESAMPLER_6X1; }
uint32_t scale_by_kind(uint32_t kind, uint32_t value);

// Resampling of one channel; under the channel's lock. Only enable() names the resamplers, so a program that
// never enables one is linked without their filters.
struct ResampleStage {
    bool enabled = false;
    AIO_RESAMPLE_ATTR_S attr = {};
    RESAMPLER_S* handle = nullptr;
    int (*process)(RESAMPLER_S*, const int16_t*, int, int16_t*) = nullptr;
    void (*destroy)(RESAMPLER_S*) = nullptr;

    [[nodiscard]] bool same(const AIO_RESAMPLE_ATTR_S& other) const;
    // False when memory is short.
    bool enable(const AIO_RESAMPLE_ATTR_S& wanted);
    void disable();
};

// The driver's descriptor of each slot, opened when first asked for. Not locked: a race opens twice, and the
// loser's descriptor stays open unused until the process ends.
class SlotDescriptors {
public:
    [[nodiscard]] int get(size_t slot) const { return above_[slot] - 1; }
    void set(size_t slot, int fd) { above_[slot] = fd + 1; }

private:
    std::atomic<int> above_[AIO_SLOTS] = {}; // one more than the descriptor, so that all start closed
};

// The operation that a message names: a step of it reports as the whole.
struct Operation {
    const char* name;
    int line;
};
#define THIS_OPERATION (zep::Operation{__func__, __LINE__})

// Why a channel's resampling cannot be enabled.
enum class Refusal {
    other_attributes,
    points,
    rate,
    kind,
    no_device,
    device_points,
    device_rate,
    stereo,
    no_memory
};

// One of the two drivers: how it differs from the other, and its descriptors.
struct AioDriver {
    ModuleError coded;
    const char* name; // in messages
    const char* path;
    uint32_t bind_slot;     // the request that hands a descriptor its slot
    uint32_t get_pub_attr;  // and the one that reads the device's attributes
    bool must_be_character; // a plain file in the device's place is refused
    bool device_is_output;  // of the resampling: what comes out is compared with the device, not what goes in
    // Says why resampling is refused; nothing for a refusal that has no message.
    void (*explain)(Operation operation, Refusal refusal, int32_t device, int32_t channel,
                    const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& current);
    SlotDescriptors slots = {};

    // 0, or the code of the first argument out of range, reported in the operation's name.
    int32_t check(Operation operation, int32_t device, int32_t channel = 0) const;
    int32_t refuse_channel(Operation operation, int32_t channel) const;

    // The slot's descriptor, opened if need be, or -1; public operations return a code instead.
    int descriptor(Operation operation, size_t slot);
    int32_t descriptor_or_code(Operation operation, size_t slot);
    // A request on it.
    int32_t request(Operation operation, size_t slot, uint32_t code, void* argument = nullptr);

    // Whole operations of one request: of a channel, and of a device with its attributes.
    int32_t operate(Operation operation, int32_t device, int32_t channel, uint32_t code);
    int32_t exchange(Operation operation, int32_t device, uint32_t code, AIO_ATTR_S* attr);
    // Resampling of a channel, under its lock.
    int32_t enable_resampling(Operation operation, int32_t device, int32_t channel, ResampleStage& stage,
                              const AIO_RESAMPLE_ATTR_S& attr);
};

// Whether a descriptor is ready for the event now.
bool ready_now(int fd, short event);

} // namespace zep
