// One model behind one device file. A thread more than there are requests serves it, because each may wait.
#pragma once

#include "sim/cuse/channel.hpp"
#include "sim/cuse/guest_views.hpp"
#include "sim/models/model.hpp"

#include <csignal>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace vcam::cuse {

// Of the thread that serves a request: a signal ends what it waits for. Blocked in all other threads.
inline constexpr int kInterrupt = SIGUSR1;

class Device {
public:
    Device(Model& model, GuestViews& views) : model_(model), views_(views) {}
    Device(Model& model, GuestViews& views, Channel channel)
        : model_(model), views_(views), channel_(std::move(channel))
    {
    }

    void start();  // the device file is there when this returns. Throws.
    void answer(); // from now on, what its channel asks
    bool look();   // wakes polls that have waited for what is there now; true while any waits
    void nudge();  // repeats interrupts that came before their request began to wait

private:
    using Request = Channel::Request;

    void serve();
    void add_thread();
    void busy(uint64_t request);
    void free(uint64_t request);
    void handle(const Request& request, std::vector<char>& data);
    void open(const Request& request);
    void release(const Request& request);
    void read(const Request& request, std::vector<char>& data);
    void write(const Request& request);
    void ioctl(const Request& request, std::vector<char>& data);
    void poll(const Request& request);
    void interrupt(const Request& request);
    [[nodiscard]] short ready(int fd) const;

    struct Work {
        uint64_t unique = 0; // 0: none
        pthread_t thread = {};
        bool interrupted = false;
    };
    struct Waiting {
        uint64_t poll;
        int fd;
        short events;
    };

    Model& model_;
    GuestViews& views_;
    Channel channel_;
    std::mutex lock_;
    std::vector<Work> work_; // of threads that answer
    size_t threads_ = 0;
    std::vector<Waiting> waiting_;
};

} // namespace vcam::cuse
