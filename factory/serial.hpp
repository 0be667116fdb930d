// A serial port of the board under test.
#pragma once

#include "common/base/fd.hpp"

#include <cstddef>
#include <cstdint>
#include <termios.h>

namespace zep {

// Time that a reply may take, as CTIME_IsExpired measures it.
constexpr int32_t kSerialWindowMs = 3000;

// Bytes that make a reply complete.
constexpr size_t kSerialReply = 10;

// 9600 baud, 8 data bits, no parity, one stop bit, raw. The settings that the port had are put back when the
// object ends.
class SerialPort {
public:
    // Claims the port for the test of that name. A port that does not open, or that another test has, is
    // reported to the system log and standard error; the object is false then.
    SerialPort(const char* device, const char* test);
    ~SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    explicit operator bool() const { return bool(fd_); }
    [[nodiscard]] int fd() const { return fd_.get(); }

    // Writes all bytes, however small the port's steps are; gives up when the port refuses.
    void write_all(const uint8_t* data, size_t size);

    // Waits until the last stop bit has left the port.
    void wait_sent();

    void set_rts(bool on);

private:
    Fd fd_;
    termios saved_ = {};
    bool have_saved_ = false;
};

// Start of a receive window.
class SerialWindow {
public:
    SerialWindow();
    [[nodiscard]] bool open() const;

private:
    int64_t seconds_;
    int64_t microseconds_;
    int64_t monotonic_ms_;
};

// Collects input until kSerialReply bytes or more have arrived, the window has ended or a signal came; never
// more than `size` bytes. The count.
size_t receive(const SerialPort& port, const SerialWindow& window, uint8_t* data, size_t size);

// "RECV [<count>]: " and the bytes in hexadecimal, no newline.
void print_received(const uint8_t* data, size_t count);

// "-v" as the first argument.
bool verbose_option(int argc, char** argv);

// Runs "/bin/reg -s <address> 0x1".
void set_pin(const char* address);

} // namespace zep
