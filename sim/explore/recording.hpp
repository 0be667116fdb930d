// What one run did to the flash, as its record has it.
#pragma once

#include "sim/base/files.hpp"
#include "sim/clock/flash.hpp"

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vcam::explore {

struct Operation {
    flash::Kind kind;
    unsigned partition;            // number
    uint32_t offset, size;         // bytes
    std::span<const uint8_t> data; // of write and replace
    int64_t time_ns;               // camera time
    int pid;                       // in the camera
    std::string process;
};

// Owns the bytes that its operations point to.
class Recording {
public:
    // Stops at an incomplete last entry; throws when one before it is damaged.
    explicit Recording(const std::string& path);
    [[nodiscard]] const std::vector<Operation>& operations() const { return operations_; }

private:
    std::unique_ptr<Mapped> file_;
    std::vector<Operation> operations_;
};

const char* name_of(flash::Kind kind); // "write"

} // namespace vcam::explore
