// A serial port of the board under test.
#include "factory/serial.hpp"
#include "factory/board_guard.hpp"
#include "factory/verdict.hpp"

#include "common/ctime.h"
#include "common/base/monotonic.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

namespace zep {

namespace {

// A clock that steps back would hold the window open: this ends it all the same.
constexpr int64_t kWindowCapMs = 10'000;

// Ten bytes leave a 9600 baud port in about 10 ms; a port that never reports empty must not hang.
constexpr int64_t kSentCapMs = 1000;

termios raw_9600()
{
    termios settings = {};
    settings.c_iflag = IGNPAR;
    settings.c_cflag = B9600 | CS8 | CREAD | CLOCAL;
    cfsetispeed(&settings, B9600);
    cfsetospeed(&settings, B9600);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    return settings;
}

} // namespace

SerialPort::SerialPort(const char* device, const char* test)
    : fd_(open(device, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (fd_ && !claim_board(fd_.get(), 0, test)) fd_.reset();
    if (!fd_) {
        warn("%s device open fail !!!", device);
        return;
    }
    have_saved_ = tcgetattr(fd_.get(), &saved_) == 0;
    termios settings = raw_9600();
    tcflush(fd_.get(), TCIFLUSH);
    tcsetattr(fd_.get(), TCSANOW, &settings);
}

SerialPort::~SerialPort()
{
    if (have_saved_) tcsetattr(fd_.get(), TCSANOW, &saved_);
}

void SerialPort::write_all(const uint8_t* data, size_t size)
{
    while (size > 0) {
        ssize_t written = write(fd_.get(), data, size);
        if (written > 0) {
            data += written;
            size -= size_t(written);
            continue;
        }
        if (written == 0 || (errno != EAGAIN && errno != EINTR)) return;
        pollfd ready = {fd_.get(), POLLOUT, 0};
        if (poll(&ready, 1, kSerialWindowMs) == 0) return;
    }
}

void SerialPort::wait_sent()
{
    // Without a pause: a sleep lasts a tick of 10 ms, in which the other side may have answered already.
    const int64_t start = monotonic_ms();
    do {
        int state = 0;
        if (ioctl(fd_.get(), TIOCSERGETLSR, &state) < 0) {
            tcdrain(fd_.get()); // the driver cannot tell: the queue at least has left
            return;
        }
        if (state & TIOCSER_TEMT) return;
    } while (monotonic_ms() - start < kSentCapMs);
}

void SerialPort::set_rts(bool on)
{
    int lines = 0;
    ioctl(fd_.get(), TIOCMGET, &lines);
    lines = on ? lines | TIOCM_RTS : lines & ~TIOCM_RTS;
    ioctl(fd_.get(), TIOCMSET, &lines);
}

SerialWindow::SerialWindow()
{
    timeval now;
    gettimeofday(&now, nullptr);
    seconds_ = now.tv_sec;
    microseconds_ = now.tv_usec;
    monotonic_ms_ = monotonic_ms();
}

bool SerialWindow::open() const
{
    if (monotonic_ms() - monotonic_ms_ >= kWindowCapMs) return false;
    return CTIME_IsExpired(seconds_, microseconds_, kSerialWindowMs) != 0;
}

size_t receive(const SerialPort& port, const SerialWindow& window, uint8_t* data, size_t size)
{
    size_t count = 0;
    while (count < size && count < kSerialReply && window.open() && !BoardGuard::interrupted()) {
        pollfd ready = {port.fd(), POLLIN, 0};
        if (poll(&ready, 1, 5) != 1) continue;
        ssize_t got = read(port.fd(), data + count, size - count);
        if (got > 0)
            count += size_t(got);
        else if (ready.revents & (POLLHUP | POLLERR))
            usleep(5000); // a lost port stays readable and empty
    }
    return count;
}

void print_received(const uint8_t* data, size_t count)
{
    printf("RECV [%8d]: ", int(count));
    for (size_t i = 0; i < count; ++i) printf("%02X ", data[i]);
}

bool verbose_option(int argc, char** argv) { return argc > 1 && strcmp(argv[1], "-v") == 0; }

void set_pin(const char* address)
{
    char line[64];
    snprintf(line, sizeof line, "%s -s %s 0x1", "/bin/reg", address);
    BoardGuard::run_shell(line);
}

} // namespace zep
