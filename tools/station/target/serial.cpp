// A serial port of the PC as the line to a board's console.
#include "tools/station/target/wire.hpp"

#include "tools/cli/command_line.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace station {
namespace {

struct Rate {
    const char* name;
    speed_t speed;
};
constexpr Rate kRates[] = {
    {"9600", B9600},     {"19200", B19200},   {"38400", B38400},   {"57600", B57600},     {"115200", B115200},
    {"230400", B230400}, {"460800", B460800}, {"921600", B921600}, {"1500000", B1500000},
};
constexpr int kWriteMs = 5000; // for the driver to take bytes: longer means that it sends none

class SerialWire final : public Wire {
public:
    SerialWire(std::string device, speed_t speed) : device_(std::move(device)), speed_(speed) {}
    ~SerialWire() override { close(); }
    void open(double seconds, const Watch& watch) override;
    std::string read(int wait_ms) override;
    void write(std::string_view bytes) override;

private:
    void close();
    void claim();
    void set_up();
    [[nodiscard]] std::string failure(const std::string& what) const
    {
        return "serial:" + device_ + ": " + what + ": " + strerror(errno);
    }

    const std::string device_;
    const speed_t speed_;
    int fd_ = -1;
    termios before_ = {};
    bool changed_ = false;
};

void SerialWire::close()
{
    if (fd_ < 0) return;
    if (changed_) {
        ioctl(fd_, TIOCNXCL);
        tcsetattr(fd_, TCSANOW, &before_);
    }
    ::close(fd_);
    fd_ = -1;
    changed_ = false;
}

// The driver's mark keeps other users out, the lock root's other programs.
void SerialWire::claim()
{
    if (tcgetattr(fd_, &before_) < 0)
        throw std::runtime_error("serial:" + device_ + ": is no serial port or terminal");
    if (flock(fd_, LOCK_EX | LOCK_NB) < 0 || ioctl(fd_, TIOCEXCL) < 0)
        throw std::runtime_error(failure("is in use by another program"));
}

void SerialWire::set_up()
{
    termios raw = before_;
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL;
    raw.c_cflag &= ~tcflag_t(CSTOPB | CRTSCTS | HUPCL);
    cfsetspeed(&raw, speed_);
    changed_ = true;
    if (tcsetattr(fd_, TCSAFLUSH, &raw) < 0) throw std::runtime_error(failure("cannot be set up"));
}

void SerialWire::open(double, const Watch&)
{
    if (fd_ >= 0) return;
    fd_ = ::open(device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) throw std::runtime_error(failure("cannot be opened"));
    try {
        claim();
        set_up();
    } catch (const std::runtime_error&) {
        close();
        throw;
    }
}

std::string SerialWire::read(int wait_ms)
{
    pollfd wait = {fd_, POLLIN, 0};
    if (poll(&wait, 1, wait_ms) <= 0) return {};
    char bytes[4096];
    const ssize_t n = ::read(fd_, bytes, sizeof bytes);
    if (n > 0) return {bytes, size_t(n)};
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return {};
    const std::string why =
        n == 0 ? "serial:" + device_ + ": has gone; is it plugged in?" : failure("cannot be read");
    close();
    throw Broken(why);
}

void SerialWire::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
        if (n > 0) {
            bytes.remove_prefix(size_t(n));
            continue;
        }
        pollfd wait = {fd_, POLLOUT, 0};
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EAGAIN && poll(&wait, 1, kWriteMs) > 0) continue;
        const std::string why = failure("cannot be written");
        close();
        throw Broken(why);
    }
}

} // namespace

std::unique_ptr<Target> serial_target(const std::string& address, const Access& access)
{
    const size_t comma = address.rfind(',');
    const std::string rate = comma == address.npos ? "115200" : address.substr(comma + 1);
    std::string list;
    for (const Rate& row : kRates) {
        if (rate == row.name)
            return console_target(std::make_unique<SerialWire>(address.substr(0, comma), row.speed),
                                  "serial:" + address, access);
        list += (list.empty() ? "" : ", ") + std::string(row.name);
    }
    throw cli::WrongUse("TARGET 'serial:" + address + "': '" + rate + "' is no baud rate; give one of " +
                        list);
}

} // namespace station
