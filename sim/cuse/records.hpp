// The records of requests whose numbers do not say how long they are.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vcam::cuse {

struct Record {
    size_t in = 0, out = 0; // bytes that the program gives and gets
};

// Of a device, by the name that the fault plan has for it.
Record record_of(const char* device, uint32_t request);

} // namespace vcam::cuse
