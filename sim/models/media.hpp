// What the models of the media drivers share.
#pragma once

#include "sim/models/page.hpp"
#include "sim/models/model.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace vcam::models {

// A device that is only spoken to in requests.
class MediaModel : public Model {
public:
    using Model::Model;
    bool has_bytes() const override { return false; }
    ssize_t read(int, void*, size_t) override { return -EINVAL; }
    ssize_t write(int, const void*, size_t) override { return -EINVAL; }
    ssize_t pread(int, void*, size_t, int64_t) override { return -ESPIPE; }
    ssize_t pwrite(int, const void*, size_t, int64_t) override { return -ESPIPE; }
    int64_t seek(int, int64_t, int) override { return -ESPIPE; }
    int ioctl(int fd, uint32_t request, void* argument) override
    {
        const bool known =
            std::any_of(requests.begin(), requests.end(), [=](auto& row) { return row.request == request; });
        if (!known) return -ENOTTY;
        if (size_of(request) && !argument) return -EFAULT;
        return answer(fd, request, argument);
    }

protected:
    ~MediaModel() = default;
    virtual int answer(int fd, uint32_t request, void* argument) = 0;
    static constexpr uint32_t size_of(uint32_t request) { return request >> 16 & 0x3FFF; }
};

template<class T> T load(const void* from)
{
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

template<class T> int store(void* to, const T& value)
{
    memcpy(to, &value, sizeof value);
    return 0;
}

// Which channel an opening of an audio device is for. Kept as the position of the descriptor's backing
// file: dup, fork and exec share it as they share what a driver notes at an opening.
constexpr uint32_t kNoSlot = media::kSlots;
void set_slot(int fd, uint32_t slot);
uint32_t slot_of(int fd);

// Waits for a time or, where there is none (media::kNever), for a change. False when a signal came.
bool wait_for(media::Ns time, uint32_t generation);

// A line in the journal and in the media log.
void note(const char* driver, const char* format, ...) __attribute__((format(printf, 2, 3)));

} // namespace vcam::models
