// What encoder and decoder channels share: the look-up of a channel, how an argument is refused, the driver.
#pragma once

#include "base/mpp_lock.hpp"
#include "base/mpp_report.hpp"
#include "mpi/src/mpi_driver.hpp"

#include <atomic>
#include <cstdint>

namespace zep {

constexpr uint32_t kCodecChannels = 32;
// A registered codec may name any length; a queue of such frames must stay within reason.
constexpr uint32_t kLongestFrame = 0x10000;

// How one of the two modules differs from the other, and its driver. Checks give 0 or a code, and report what
// they refuse in the operation's name.
struct CodecModule {
    ModuleError coded;
    const char* name; // in messages
    uint32_t min_buffer, max_buffer;
    Driver driver;

    int32_t check_channel(const char* function, int line, int32_t channel) const;
    int32_t check_block(const char* function, int line, uint32_t block) const;
    int32_t check_buffer(const char* function, int line, uint32_t size) const;
    int32_t refuse_payload(const char* function, int line, int32_t type) const;

    // The driver's descriptor, opened if need be, or a code.
    int32_t descriptor_or_code();
};

// The channels of one module. A Channel has a lock, exists() and a generation, which tells it from one that
// was made again in its place.
template<class Channel> struct CodecChannels {
    std::atomic<bool> initialised = false;
    Channel channels[kCodecChannels];

    // Under the channel's lock: 0 when it is there.
    int32_t check_exists(const CodecModule& module, const Channel& channel) const
    {
        if (!initialised) return module.coded(MPP_ERR_REFUSED);
        return channel.exists() ? 0 : module.coded(MPP_ERR_MISSING);
    }

    // `work` on the channel, under its lock, when it is there.
    template<class Work> int32_t with(const CodecModule& module, int32_t number, Work work)
    {
        Channel& channel = channels[number];
        MutexLock locked(channel.lock);
        if (int32_t failed = check_exists(module, channel)) return failed;
        return work(channel, locked);
    }
};

} // namespace zep

// Within an operation: returns what its channel number is refused with.
#define CODEC_CHECK(MODULE, CHANNEL)                                                                         \
    if (int32_t refused = (MODULE).check_channel(__func__, __LINE__, (CHANNEL))) return refused
