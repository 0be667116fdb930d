// Physical memory mapped into the program that asks for it, by calls made in its place.
//
// Only a process can map something into itself. Its thread waits for the answer to a request: it is held at the end of
// that request, makes three calls there (open /dev/mem, mmap, close) with the request's own instruction, and goes on as
// if the driver had mapped. A program under a debugger cannot be held.
#pragma once

#include "sim/models/memory.hpp"

#include <map>
#include <mutex>
#include <span>
#include <utility>

namespace vcam::cuse {

class GuestViews final : public media::Views {
public:
    // What a model asks while it answers the thread. A first mapping gets a stand-in for its address.
    uint32_t map(uint32_t physical, uint32_t size) override;
    bool unmap(uint32_t physical, uint32_t size) override;
    bool mapped(uint32_t physical) override;

    // One request of a thread: begun before the model is asked, held before the answer, settled after it.
    class Request {
    public:
        Request(GuestViews& views, int thread);
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;
        // 0, or a negative errno number when the thread cannot be held. Does nothing when no mapping was asked for.
        int hold();
        // `record` is what the thread has at `address`: the stand-in in it becomes the mapping's address.
        void settle(std::span<const char> record, uint32_t address);

    private:
        friend class GuestViews;
        void settle_map(uint32_t at, std::span<const char> record, uint32_t address);
        GuestViews& views_;
        const int thread_;
        enum class Wanted : uint8_t { nothing, map, unmap } wanted_ = Wanted::nothing;
        uint32_t physical_ = 0, size_ = 0, at_ = 0;
        bool held_ = false;
    };

private:
    static thread_local Request* current_;
    std::mutex lock_;
    std::map<std::pair<int, uint32_t>, uint32_t> at_; // by process and physical address
};

} // namespace vcam::cuse
