// One model behind one device file.
#include "sim/cuse/device.hpp"
#include "sim/base/caller.hpp"
#include "sim/cuse/records.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <thread>

namespace vcam::cuse {
namespace {

constexpr size_t kMostThreads = 256; // programs that wait at once; a further one is answered when they are
constexpr short kInOut = POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM;

int64_t or_errno(int64_t result) { return result == -1 ? -errno : result; }

// The program's own flag comes with each transfer; the model looks at its descriptor's.
void set_waiting(int fd, uint32_t flags)
{
    const int now = fcntl(fd, F_GETFL), wanted = (now & ~O_NONBLOCK) | int(flags & O_NONBLOCK);
    if (wanted != now) fcntl(fd, F_SETFL, wanted);
}

} // namespace

void Device::start()
{
    channel_.open(model_.path + strlen("/dev/"));
    answer();
}

void Device::answer()
{
    const std::lock_guard hold(lock_);
    add_thread();
}

void Device::add_thread()
{
    ++threads_;
    std::thread([this] { serve(); }).detach();
}

// Somebody is left to read what comes next, an interrupt of this request among it.
void Device::busy(uint64_t request)
{
    const std::lock_guard hold(lock_);
    work_.push_back({request, pthread_self()});
    if (work_.size() == threads_ && threads_ < kMostThreads) add_thread();
}

void Device::free(uint64_t request)
{
    const std::lock_guard hold(lock_);
    std::erase_if(work_, [request](const Work& work) { return work.unique == request; });
}

void Device::serve()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, kInterrupt);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    Request request;
    std::vector<char> data(kMostData);
    while (channel_.next(request)) {
        const uint64_t unique = request.head().unique;
        if (request.head().opcode == FUSE_INTERRUPT) {
            interrupt(request);
            continue;
        }
        busy(unique);
        handle(request, data);
        free(unique);
    }
}

void Device::handle(const Request& request, std::vector<char>& data)
{
    const caller::Answering answering(int(request.head().pid));
    switch (request.head().opcode) {
    case FUSE_OPEN:
        return open(request);
    case FUSE_RELEASE:
        return release(request);
    case FUSE_READ:
        return read(request, data);
    case FUSE_WRITE:
        return write(request);
    case FUSE_IOCTL:
        return ioctl(request, data);
    case FUSE_POLL:
        return poll(request);
    case FUSE_FLUSH:
    case FUSE_FSYNC:
        return channel_.answer(request.head().unique, 0);
    default:
        return channel_.answer(request.head().unique, -ENOSYS);
    }
}

// A descriptor of the model stands for each opening.
void Device::open(const Request& request)
{
    const int64_t fd =
        or_errno(device::open(model_, int(request.body<fuse_open_in>().flags) & ~(O_NOCTTY | O_CREAT)));
    if (fd < 0) return channel_.answer(request.head().unique, int(fd));
    fuse_open_out out = {};
    out.fh = uint64_t(fd);
    out.open_flags = FOPEN_DIRECT_IO | FOPEN_NONSEEKABLE;
    channel_.answer(request.head().unique, 0, {Channel::bytes(out)});
}

void Device::release(const Request& request)
{
    const int fd = int(request.body<fuse_release_in>().fh);
    {
        const std::lock_guard hold(lock_);
        std::erase_if(waiting_, [fd](const Waiting& waiting) { return waiting.fd == fd; });
    }
    device::close(fd);
    channel_.answer(request.head().unique, 0);
}

void Device::read(const Request& request, std::vector<char>& data)
{
    const auto& in = request.body<fuse_read_in>();
    set_waiting(int(in.fh), in.flags);
    const int64_t n =
        or_errno(device::read(model_, int(in.fh), data.data(), std::min<size_t>(in.size, data.size())));
    if (n < 0) return channel_.answer(request.head().unique, int(n));
    channel_.answer(request.head().unique, 0, {{data.data(), size_t(n)}});
}

void Device::write(const Request& request)
{
    const auto& in = request.body<fuse_write_in>();
    set_waiting(int(in.fh), in.flags);
    const int64_t n = or_errno(device::write(model_, int(in.fh), request.behind(sizeof in), in.size));
    if (n < 0) return channel_.answer(request.head().unique, int(n));
    fuse_write_out out = {};
    out.size = uint32_t(n);
    channel_.answer(request.head().unique, 0, {Channel::bytes(out)});
}

// The kernel moves a record whose length is in the request's number. The others, and what a record that only comes
// back held before, are read from the caller's memory.
void Device::ioctl(const Request& request, std::vector<char>& data)
{
    const auto& in = request.body<fuse_ioctl_in>();
    auto* const there = reinterpret_cast<void*>(uintptr_t(in.arg));
    const Record record =
        in.in_size || in.out_size ? Record{in.in_size, in.out_size} : record_of(model_, in.cmd);
    const size_t size = std::min(std::max(record.in, record.out), data.size());
    fuse_ioctl_out out = {};
    if (in.in_size)
        memcpy(data.data(), request.behind(sizeof in), std::min<size_t>(in.in_size, size));
    else if (size && there && !caller::load(there, data.data(), size))
        out.result = -EFAULT;
    GuestViews::Request view(views_, int(request.head().pid));
    if (out.result == 0) {
        void* const argument = size && there ? data.data() : there;
        out.result = int(or_errno(device::ioctl(model_, int(in.fh), in.cmd, argument)));
    }
    if (out.result == 0) out.result = view.hold();
    const bool stored = record.out > in.out_size && there && out.result >= 0;
    if (stored && !caller::store(there, data.data(), record.out)) out.result = -EFAULT;
    channel_.answer(request.head().unique, 0, {Channel::bytes(out), {data.data(), in.out_size}});
    view.settle({data.data(), size}, uint32_t(in.arg));
}

short Device::ready(int fd) const { return model_.has_readiness() ? model_.readiness(fd).events : kInOut; }

void Device::poll(const Request& request)
{
    const auto& in = request.body<fuse_poll_in>();
    fuse_poll_out out = {};
    const auto wanted = short(in.events & kInOut);
    {
        const std::lock_guard hold(lock_);
        out.revents = uint32_t(ready(int(in.fh)));
        std::erase_if(waiting_, [&](const Waiting& waiting) { return waiting.poll == in.kh; });
        if ((in.flags & FUSE_POLL_SCHEDULE_NOTIFY) && !(short(out.revents) & wanted))
            waiting_.push_back({in.kh, int(in.fh), wanted});
    }
    channel_.answer(request.head().unique, 0, {Channel::bytes(out)});
}

bool Device::look()
{
    const std::lock_guard hold(lock_);
    std::erase_if(waiting_, [this](const Waiting& waiting) {
        if (!(ready(waiting.fd) & waiting.events)) return false;
        channel_.wake(waiting.poll);
        return true;
    });
    return !waiting_.empty();
}

// Of a request that no thread has begun yet the kernel asks again.
void Device::interrupt(const Request& request)
{
    const uint64_t which = request.body<fuse_interrupt_in>().unique;
    const std::lock_guard hold(lock_);
    const auto work =
        std::find_if(work_.begin(), work_.end(), [which](const Work& w) { return w.unique == which; });
    if (work == work_.end()) return channel_.answer(request.head().unique, -EAGAIN);
    work->interrupted = true;
    pthread_kill(work->thread, kInterrupt);
}

void Device::nudge()
{
    const std::lock_guard hold(lock_);
    for (const Work& work : work_)
        if (work.interrupted) pthread_kill(work.thread, kInterrupt);
}

} // namespace vcam::cuse
