// test_rs485, test_rs232: the serial ports against a loop-back plug.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/serial.hpp"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint8_t kPatterns[] = {0xA5, 0x5A, 0xFF, 0x00};
constexpr int kRounds = 10;
constexpr size_t kBlock = 10;
static_assert(kBlock == zep::kSerialReply);

enum class Direction { none, rts };

// The RS-485 driver is released only after the last stop bit: earlier cuts the byte, and what arrives
// while RTS is still cleared is lost.
void send_block(zep::SerialPort& port, Direction direction, const uint8_t* block)
{
    if (direction == Direction::none) {
        port.write_all(block, kBlock);
        return;
    }
    port.set_rts(false);
    port.write_all(block, kBlock);
    port.wait_sent();
    port.set_rts(true);
}

bool exchange(zep::SerialPort& port, Direction direction, uint8_t pattern, bool verbose)
{
    zep::SerialWindow window;
    uint8_t sent[kBlock];
    memset(sent, pattern, sizeof sent);
    // Cleared, so that a missing reply to a block of zeros compares equal: stations count on that word.
    uint8_t received[kBlock] = {};
    send_block(port, direction, sent);
    if (verbose) printf("PATTERN [0x%02X] => ", pattern);
    size_t count = receive(port, window, received, sizeof received);
    if (zep::BoardGuard::interrupted()) return false;
    if (verbose) zep::print_received(received, count);
    bool equal = memcmp(sent, received, sizeof sent) == 0;
    if (verbose) puts(equal ? " : successful" : " : failed");
    return equal;
}

bool exchange_all(zep::SerialPort& port, Direction direction, bool verbose)
{
    for (int round = 0; round < kRounds; ++round)
        for (uint8_t pattern : kPatterns)
            if (zep::BoardGuard::interrupted() || !exchange(port, direction, pattern, verbose)) return false;
    return true;
}

} // namespace

int test_rs485_main(int argc, char** argv)
{
    bool verbose = zep::verbose_option(argc, argv);
    setvbuf(stdout, nullptr, _IONBF, 0);
    zep::BoardGuard guard;
    bool passed;
    {
        zep::SerialPort port("/dev/ttyAMA1", argv[0]);
        if (!port) guard.give_up();
        zep::set_pin("0x200F0094");
        zep::set_pin("0x200F0098");
        zep::set_pin("0x200F00A0");
        port.set_rts(true);
        passed = exchange_all(port, Direction::rts, verbose);
    }
    return guard.verdict(passed);
}

int test_rs232_main(int argc, char** argv)
{
    bool verbose = zep::verbose_option(argc, argv);
    setvbuf(stdout, nullptr, _IONBF, 0);
    zep::BoardGuard guard;
    zep::set_pin("0x200F0100");
    zep::set_pin("0x200F0104");
    bool passed;
    {
        zep::SerialPort port("/dev/ttyAMA2", argv[0]);
        if (!port) guard.give_up();
        passed = exchange_all(port, Direction::none, verbose);
    }
    return guard.verdict(passed);
}
