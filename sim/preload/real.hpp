// The way from an interposer to the function it stands in front of.
#pragma once

#include "sim/models/model.hpp"

#include <atomic>
#include <cerrno>
#include <type_traits>

namespace vcam {

// True when this process belongs to a camera. Without one every interposer passes its call on.
bool active();
// The device behind a descriptor, when this process is in a camera.
inline Model* device_of(int fd) { return active() ? device::of(fd) : nullptr; }

// What a call gives that fails.
inline int refused(int error)
{
    errno = error;
    return -1;
}

void* next_symbol(const char* name);

// The next definition of a C library function, looked up once a place.
#define VCAM_NEXT(type, name)                                                                                \
    ([]() -> std::add_pointer_t<type> {                                                                      \
        static std::atomic<void*> cache{nullptr};                                                            \
        void* found = cache.load(std::memory_order_relaxed);                                                 \
        if (!found) cache.store(found = ::vcam::next_symbol(name), std::memory_order_relaxed);               \
        return reinterpret_cast<std::add_pointer_t<type>>(found);                                            \
    }())

#define VCAM_EXPORT extern "C" __attribute__((visibility("default")))

} // namespace vcam
