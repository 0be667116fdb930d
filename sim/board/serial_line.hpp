// A serial port and its line, byte by byte in camera time: what leaves, what the far end makes of it, what
// arrives. A port's state is a record in a file, shared by all processes of the camera.
#pragma once

#include "sim/board/serial_plug.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vcam::serial {

// The kernel's terminal settings, as the requests TCGETS and TCSETS carry them.
struct Settings {
    uint32_t iflag, oflag, cflag, lflag;
    uint8_t discipline;
    uint8_t cc[19];
};
static_assert(sizeof(Settings) == 36);

// A byte between start and stop bit.
struct WireByte {
    alignas(8) int64_t end_ns; // of its stop bit
    uint8_t value;
    uint8_t broken; // a direction switch cut it
};

template<class Item, uint32_t N> struct Queue {
    uint32_t first, count;
    std::array<Item, N> items;
    [[nodiscard]] bool empty() const { return count == 0; }
    [[nodiscard]] uint32_t room() const { return N - count; }
    Item& front() { return items[first]; }
    Item& back() { return items[(first + count - 1) % N]; }
    void push(const Item& item)
    {
        if (room()) items[(first + count++) % N] = item;
    }
    void pop()
    {
        first = (first + 1) % N;
        --count;
    }
};

// The same layout in 64-bit and 32-bit processes.
struct Record {
    uint32_t magic;
    Settings settings;
    uint32_t lines;                  // TIOCM_ bits
    uint32_t sent, received, lost;   // bytes, for vcam status
    uint32_t far_count;              // bytes of the far end since the port was opened
    uint32_t request_count;          // bytes of a request that the block is reading
    alignas(8) int64_t wire_free_ns; // when the far end may send its next byte
    uint8_t request[16];
    Queue<WireByte, 1024> out, wire; // on the way to the far end, and from it
    Queue<uint8_t, 4096> in;         // arrived, not read yet
};

static_assert(sizeof(Record) == 36976);

class SerialLine {
public:
    // `rs485`: one pair of wires, whose driver RTS switches: cleared it sends, set it receives.
    SerialLine(Record& record, const std::string& port, bool rs485, int64_t now_ns);

    void opened();
    size_t write(const uint8_t* data, size_t size);
    size_t read(uint8_t* data, size_t size);
    void set_lines(uint32_t lines);
    void flush(bool in, bool out);

    [[nodiscard]] bool readable() const;
    [[nodiscard]] bool sent_all() const { return record_.out.empty(); }
    [[nodiscard]] int64_t sent_all_ns() const; // when the last byte will have left
    [[nodiscard]] int64_t next_change_ns() const;

private:
    void advance();
    void reach_far_end(const WireByte& byte);
    void repeat_when_quiet(int64_t quiet_ns);
    void block_takes(const WireByte& byte);
    void far_end_sends(uint8_t value, int64_t start_ns);
    void arrive(const WireByte& byte);
    [[nodiscard]] bool sending() const;
    [[nodiscard]] int64_t byte_ns() const;

    Record& record_;
    const std::string port_;
    const bool rs485_;
    const int64_t now_;
    Plug plug_;
};

// Settings and modem lines as the driver first has them.
void reset(Record& record);

// "9600 8N1 raw"
std::string describe(const Settings& settings);

// The record of a port, held alone while this lives. Outside a camera the record is private.
class Held {
public:
    explicit Held(const std::string& port);
    ~Held();
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    Record& operator*() { return *record_; }

private:
    int fd_ = -1;
    void* map_ = nullptr;
    Record* record_;
    std::unique_ptr<Record> own_;
};

// A camera that is switched on finds its ports as the driver first has them.
void power_on();

inline constexpr const char* kPorts[] = {"ttyAMA1", "ttyAMA2"};

} // namespace vcam::serial
