// One device file made over /dev/cuse: the kernel's requests and the answers to them.
#pragma once

#include "common/base/fd.hpp"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <linux/fuse.h>
#include <span>
#include <string>
#include <vector>

namespace vcam::cuse {

inline constexpr size_t kMostData = 64 * 1024; // of one read or write

class Channel {
public:
    Channel() = default;
    explicit Channel(zep::Fd kernel) : fd_(std::move(kernel)) {} // its other end speaks as the kernel does

    // The device file is there when this returns. Throws.
    void open(const std::string& name);

    // The next request; the body behind its head lies in the buffer. False when the device has ended. Threads may
    // wait here together.
    struct Request {
        std::vector<char> buffer;
        [[nodiscard]] const fuse_in_header& head() const;
        template<class Body> [[nodiscard]] const Body& body() const
        {
            return *reinterpret_cast<const Body*>(buffer.data() + sizeof(fuse_in_header));
        }
        [[nodiscard]] const char* behind(size_t body_size) const
        {
            return buffer.data() + sizeof(fuse_in_header) + body_size;
        }
    };
    bool next(Request& request) const;

    using Bytes = std::span<const char>;
    // error: 0 or a negative errno number. The kernel drops an answer from -512 down, which are its own, and its caller
    // would wait for ever: that is EIO, with a line in the journal. Somebody who is gone needs no answer.
    void answer(uint64_t unique, int error, std::initializer_list<Bytes> parts = {}) const;
    template<class Record> static Bytes bytes(const Record& record)
    {
        return {reinterpret_cast<const char*>(&record), sizeof record};
    }
    // A poll that found nothing is to look again.
    void wake(uint64_t poll) const;

private:
    zep::Fd fd_;
};

} // namespace vcam::cuse
