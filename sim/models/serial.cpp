// The serial ports, whose bytes take their time on the line. On the first one RTS switches the driver of
// a pair of wires: cleared it sends, set it receives.
#include "sim/board/serial_line.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

namespace vcam::models {
namespace {
namespace serial_driver {

using serial::SerialLine;

// The kernel's numbers of requests that the C library's headers hide behind functions, or call otherwise.
constexpr uint32_t kGet = 0x5401, kSet = 0x5402, kSetDrained = 0x5403, kSetFlushed = 0x5404, kBreak = 0x5409,
                   kFlow = 0x540A, kFlush = 0x540B, kLineStatus = 0x5459;
constexpr int32_t kTransmitterEmpty = 1;
constexpr int64_t kDecisecond = 100'000'000, kPeerPause = 2'000'000;
constexpr uint32_t kRoomToSay = 256; // a queue that is fuller than this is not said to be writable

constexpr RequestName kNames[] = {
    {kGet, "getsettings"},        {kSet, "setsettings"},  {kSetDrained, "setsettings"},
    {kSetFlushed, "setsettings"}, {kBreak, "drain"},      {kFlush, "flush"},
    {TIOCMGET, "getlines"},       {TIOCMSET, "setlines"}, {TIOCMBIS, "setlines"},
    {TIOCMBIC, "setlines"},       {kLineStatus, "getlsr"}};

class Serial final : public Model {
public:
    Serial(const char* device_path, const char* port, bool rs485)
        : Model(device_path, port, kNames), rs485_(rs485)
    {
    }

    int open(int flags) override
    {
        const int fd = Model::open(flags);
        if (fd < 0) return fd;
        journal::add(name, "open");
        on_line([](SerialLine& line) { line.opened(); });
        return fd;
    }

    ssize_t read(int fd, void* data, size_t size) override
    {
        const int64_t start = clock::now_ns();
        for (;;) {
            size_t count = 0;
            int64_t changes = 0, limit = INT64_MAX;
            on_line([&](SerialLine& line) {
                count = line.read(static_cast<uint8_t*>(data), size);
                changes = line.next_change_ns();
            });
            if (count || size == 0) return ssize_t(count);
            if (!blocking(fd)) return -EAGAIN;
            const serial::Settings s = settings();
            // Without a least number of bytes the time limit, which may be none, ends the wait.
            if (!(s.lflag & ICANON) && s.cc[VMIN] == 0) limit = start + s.cc[VTIME] * kDecisecond;
            if (clock::now_ns() >= limit) return 0;
            if (!wait(std::min(changes, limit))) return -EINTR;
        }
    }

    ssize_t write(int fd, const void* data, size_t size) override
    {
        const auto* bytes = static_cast<const uint8_t*>(data);
        size_t done = 0;
        for (;;) {
            int64_t changes = 0;
            on_line([&](SerialLine& line) {
                done += line.write(bytes + done, size - done);
                changes = line.next_change_ns();
            });
            if (done == size) return ssize_t(done);
            if (!blocking(fd)) return done ? ssize_t(done) : -EAGAIN;
            if (!wait(changes)) return done ? ssize_t(done) : -EINTR;
        }
    }
    ssize_t pread(int, void*, size_t, int64_t) override { return -ESPIPE; }
    ssize_t pwrite(int, const void*, size_t, int64_t) override { return -ESPIPE; }
    int64_t seek(int, int64_t, int) override { return -ESPIPE; }

    int ioctl(int, uint32_t request, void* argument) override
    {
        switch (request) {
        case kBreak: // the C library's tcdrain; a break itself does nothing to anybody here
            return drain();
        case kFlow:
            return 0;
        case kFlush: {
            const long which = reinterpret_cast<long>(argument);
            on_line([&](SerialLine& line) { line.flush(which != TCOFLUSH, which != TCIFLUSH); });
            return 0;
        }
        case kSetDrained:
        case kSetFlushed:
            if (const int error = drain(); error < 0) return error;
            if (request == kSetFlushed) on_line([](SerialLine& line) { line.flush(true, false); });
            break;
        default:
            break;
        }
        if (!argument) return -EFAULT;
        return with_argument(request, argument);
    }

    void closed() override { journal::add(name, "close"); }

    bool has_readiness() const override { return true; }
    Readiness readiness(int) override
    {
        Readiness found;
        serial::Held held(name);
        const SerialLine line(*held, name, rs485_, clock::now_ns());
        if (line.readable()) found.events |= POLLIN | POLLRDNORM;
        if ((*held).out.room() >= kRoomToSay) found.events |= POLLOUT | POLLWRNORM;
        found.changes_ns = line.next_change_ns();
        return found;
    }

private:
    template<class Action> void on_line(Action action)
    {
        serial::Held held(name);
        SerialLine line(*held, name, rs485_, clock::now_ns());
        action(line);
    }

    serial::Settings settings()
    {
        serial::Held held(name);
        return (*held).settings;
    }

    static bool blocking(int fd)
    {
#ifdef __LP64__
        return !(::syscall(SYS_fcntl, fd, F_GETFL) & O_NONBLOCK);
#else
        return !(::syscall(SYS_fcntl64, fd, F_GETFL) & O_NONBLOCK);
#endif
    }

    // Until camera time says so, or, when nothing is on its way, until another process may have done
    // something. False when a signal came.
    static bool wait(int64_t until_ns)
    {
        if (until_ns != INT64_MAX) return clock::sleep_until(until_ns, false);
        return raw::poll(nullptr, 0, kPeerPause) >= 0;
    }

    int drain()
    {
        for (;;) {
            int64_t end = 0;
            bool empty = false;
            on_line([&](SerialLine& line) {
                empty = line.sent_all();
                end = line.sent_all_ns();
            });
            if (empty) return 0;
            if (!wait(end)) return -EINTR;
        }
    }

    int set(const void* argument)
    {
        serial::Held held(name);
        const SerialLine line(*held, name, rs485_,
                              clock::now_ns()); // what is on the line keeps its old speed
        memcpy(&(*held).settings, argument, sizeof(serial::Settings));
        journal::add(name, "settings " + serial::describe((*held).settings));
        return 0;
    }

    int change_lines(uint32_t request, uint32_t bits)
    {
        serial::Held held(name);
        SerialLine line(*held, name, rs485_, clock::now_ns());
        const uint32_t now = (*held).lines;
        if (request == TIOCMBIS) bits = now | bits;
        if (request == TIOCMBIC) bits = now & ~bits;
        line.set_lines(bits);
        return 0;
    }

    int with_argument(uint32_t request, void* argument)
    {
        int32_t value = 0;
        switch (request) {
        case kGet: {
            const serial::Settings s = settings();
            memcpy(argument, &s, sizeof s);
            return 0;
        }
        case kSet:
        case kSetDrained:
        case kSetFlushed:
            return set(argument);
        case TIOCMSET:
        case TIOCMBIS:
        case TIOCMBIC:
            memcpy(&value, argument, sizeof value);
            return change_lines(request, uint32_t(value));
        case TIOCMGET:
            on_line([&](SerialLine&) {});
            value = int32_t((*serial::Held(name)).lines);
            break;
        case kLineStatus:
            on_line([&](SerialLine& line) { value = line.sent_all() ? kTransmitterEmpty : 0; });
            break;
        case FIONREAD:
            on_line([&](SerialLine&) {});
            value = int32_t((*serial::Held(name)).in.count);
            break;
        case TIOCOUTQ:
            on_line([&](SerialLine&) {});
            value = int32_t((*serial::Held(name)).out.count);
            break;
        case TIOCGWINSZ: // has no size, as every port that is no window
            memset(argument, 0, sizeof(winsize));
            return 0;
        default:
            return -ENOTTY;
        }
        memcpy(argument, &value, sizeof value);
        return 0;
    }

    const bool rs485_;
};

} // namespace serial_driver
} // namespace

Model& serial_port(unsigned number)
{
    static serial_driver::Serial rs485("/dev/ttyAMA1", serial::kPorts[0], true);
    static serial_driver::Serial rs232("/dev/ttyAMA2", serial::kPorts[1], false);
    return number == 1 ? rs485 : rs232;
}

} // namespace vcam::models
