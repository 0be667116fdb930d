// What encoder and decoder channels share: how an argument is refused, and the driver.
#pragma once

#include "base/mpp_error.h"
#include "mpi/src/mpi_driver.hpp"

#include <cstdint>

namespace zep {

// One of the two modules: what tells it from the other, and its driver's door. Checks give 0 or a code, and
// report what they refuse in the operation's name.
struct CodecPort {
    MOD_ID module;
    const char* name; // in messages
    uint32_t channels;
    uint32_t min_buffer, max_buffer;
    Driver driver;

    [[nodiscard]] int32_t error(uint32_t number) const { return MPP_ERROR(module, number); }
    int32_t check_channel(const char* function, int line, int32_t channel) const;
    int32_t check_block(const char* function, int line, uint32_t block) const;
    int32_t check_buffer(const char* function, int line, uint32_t size) const;
    int32_t refuse_payload(const char* function, int line, int32_t type) const;

    // The driver's descriptor, opened if need be, or a code.
    int32_t descriptor_or_code();
};

} // namespace zep

// Within an operation: returns what its channel number is refused with.
#define CODEC_CHECK(PORT, CHANNEL)                                                                           \
    if (int32_t refused = (PORT).check_channel(__func__, __LINE__, (CHANNEL))) return refused
