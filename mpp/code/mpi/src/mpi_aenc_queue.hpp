// The encoded frames of one channel: a ring that is never overwritten.
#pragma once

#include "base/mpp_stream.h"

#include <cstdlib>

namespace zep {

// Under the channel's lock.
class EncodedQueue {
public:
    // False when memory is short.
    bool create(uint32_t frames, uint32_t frame_bytes)
    {
        entries_ = static_cast<Entry*>(calloc(frames, sizeof(Entry)));
        bytes_ = static_cast<uint8_t*>(calloc(frames, frame_bytes));
        frames_ = frames;
        frame_bytes_ = frame_bytes;
        if (entries_ && bytes_) return true;
        destroy();
        return false;
    }
    void destroy()
    {
        free(entries_);
        free(bytes_);
        *this = {};
    }

    [[nodiscard]] uint32_t size() const { return count_; }
    [[nodiscard]] bool full() const { return count_ == frames_; }
    [[nodiscard]] uint32_t frame_bytes() const { return frame_bytes_; }

    // Where the next frame is to be encoded; not while full().
    [[nodiscard]] uint8_t* room() const { return place((first_ + count_) % frames_); }
    // What was encoded there is a frame now.
    void push(uint32_t length, uint32_t number, uint64_t stamp)
    {
        entries_[(first_ + count_++) % frames_] = {length, number, stamp};
    }

    // The oldest frame; not while empty.
    [[nodiscard]] AENC_STREAM_HEADER_S front() const
    {
        const Entry& entry = entries_[first_];
        return {place(first_), 0, entry.length, entry.number, entry.stamp};
    }
    void pop()
    {
        first_ = (first_ + 1) % frames_;
        --count_;
    }

private:
    struct Entry {
        uint32_t length;
        uint32_t number;
        uint64_t stamp;
    };

    [[nodiscard]] uint8_t* place(uint32_t index) const { return bytes_ + size_t(index) * frame_bytes_; }

    Entry* entries_ = nullptr;
    uint8_t* bytes_ = nullptr;
    uint32_t frames_ = 0;
    uint32_t frame_bytes_ = 0;
    uint32_t first_ = 0;
    uint32_t count_ = 0;
};

} // namespace zep
