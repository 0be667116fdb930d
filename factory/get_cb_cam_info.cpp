// get_cb_cam_info: asks the camera block for its version, sensor model and resolution.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/serial.hpp"

#include <cstdio>
#include <termios.h>

namespace {

constexpr size_t kFrame = 10;
constexpr size_t kAnswerByte = 6;

struct Sensor {
    uint8_t code;
    const char* model;
    const char* resolution;  // when the selector is 0
    const char* alternative; // when it is not
};
constexpr Sensor kSensors[] = {
    {0x26, "2M Panasonic", "1080p", "720p"},
    {0x16, "1.3M Panasonic", "720p", "1280x1024"},
    {0x36, "2M OmniVision", "1080p", "720p"},
    {0x46, "2M Sony", "1080p", "720p"},
};

// The replies share one buffer that is never cleared: a silent command repeats the answer before it.
struct Block {
    zep::SerialPort port;
    bool verbose;
    uint8_t reply[256] = {};

    Block(const char* applet, bool every_step) : port("/dev/ttyAMA2", applet), verbose(every_step) {}

    uint8_t ask(uint8_t command)
    {
        if (zep::BoardGuard::interrupted()) return 0;
        zep::SerialWindow window;
        const uint8_t frame[kFrame] = {0xFF, command, 0x01, 0, 0, 0, 0, 0, 0, command};
        port.write_all(frame, sizeof frame);
        tcdrain(port.fd());
        size_t count = receive(port, window, reply, sizeof reply);
        if (verbose) {
            zep::print_received(reply, count);
            puts("");
        }
        return reply[kAnswerByte];
    }
};

void print_sensor(uint8_t code, uint8_t selector)
{
    for (const Sensor& sensor : kSensors) {
        if (sensor.code != code) continue;
        printf("MODEL=%s\n", sensor.model);
        printf("RESOLUTION=%s\n", selector == 0 ? sensor.resolution : sensor.alternative);
        return;
    }
    printf("MODEL=Unknown %02X\n", code);
    printf("RESOLUTION=%s\n", "");
}

} // namespace

int get_cb_cam_info_main(int argc, char** argv)
{
    zep::BoardGuard guard;
    zep::set_pin("0x200F0100");
    zep::set_pin("0x200F0104");
    setvbuf(stdout, nullptr, _IONBF, 0);
    Block block(argv[0], zep::verbose_option(argc, argv));
    if (!block.port) guard.give_up();
    uint8_t model = block.ask(0xE0);
    uint8_t resolution = block.ask(0x5C);
    uint8_t version = block.ask(0xE3);
    if (zep::BoardGuard::interrupted()) return 0; // these are not answers; the guard ends the process
    printf("VERSION=%02X\n", version);
    print_sensor(model, resolution);
    return 0;
}
