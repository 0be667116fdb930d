// One device file made over /dev/cuse.
#include "sim/cuse/channel.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/journal.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vcam::cuse {
namespace {

constexpr int kFirstOwn = -512;              // ERESTARTSYS and what follows
constexpr size_t kBuffer = kMostData + 8192; // a request's head comes before its data

void begin(const Channel& channel, const std::string& name)
{
    Channel::Request request;
    if (!channel.next(request) || request.head().opcode != CUSE_INIT)
        fail("/dev/%s: the kernel does not speak its protocol", name.c_str());
    cuse_init_out out = {};
    out.major = FUSE_KERNEL_VERSION;
    out.minor = FUSE_KERNEL_MINOR_VERSION;
    out.max_read = out.max_write = kMostData;
    const std::string info = "DEVNAME=" + name;
    channel.answer(request.head().unique, 0, {Channel::bytes(out), {info.c_str(), info.size() + 1}});
}

} // namespace

const fuse_in_header& Channel::Request::head() const
{
    return *reinterpret_cast<const fuse_in_header*>(buffer.data());
}

void Channel::open(const std::string& name)
{
    fd_ = zep::Fd(::open("/dev/cuse", O_RDWR | O_CLOEXEC));
    if (!fd_) fail("/dev/cuse: %s", strerror(errno));
    begin(*this, name);
    const std::string path = "/dev/" + name;
    constexpr int kLooks = 2000;
    for (int look = 0; access(path.c_str(), F_OK) != 0; ++look) {
        if (look == kLooks) fail("%s does not appear", path.c_str());
        usleep(1000);
    }
}

bool Channel::next(Request& request) const
{
    request.buffer.resize(kBuffer);
    for (;;) {
        const ssize_t n = ::read(fd_.get(), request.buffer.data(), request.buffer.size());
        if (n >= ssize_t(sizeof(fuse_in_header))) return true;
        // ENOENT: the request was interrupted before anybody took it.
        if (n >= 0 || (errno != EINTR && errno != EAGAIN && errno != ENOENT)) return false;
    }
}

void Channel::answer(uint64_t unique, int error, std::initializer_list<Bytes> parts) const
{
    if (error <= kFirstOwn) {
        journal::add("cuse", text("the answer %d is the kernel's own and becomes EIO", error));
        error = -EIO;
    }
    fuse_out_header head = {sizeof head, error, unique};
    std::array<iovec, 4> pieces = {{{&head, sizeof head}}};
    int count = 1;
    for (const Bytes& part : parts) {
        pieces[size_t(count++)] = {const_cast<char*>(part.data()), part.size()};
        head.len += uint32_t(part.size());
    }
    (void)!::writev(fd_.get(), pieces.data(), count);
}

void Channel::wake(uint64_t poll) const
{
    const fuse_notify_poll_wakeup_out up = {poll};
    answer(0, FUSE_NOTIFY_POLL, {bytes(up)}); // a notice has its code in the error's place
}

} // namespace vcam::cuse
