// get_cb_cam_info: asks the camera block for its version, sensor model and resolution.
#include "factory/applets.h"
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
    zep::SerialPort port{"/dev/ttyAMA2"};
    uint8_t reply[256] = {};
    bool verbose = false;

    uint8_t ask(uint8_t command)
    {
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
    bool verbose = zep::verbose_option(argc, argv);
    zep::set_pin("0x200F0100");
    zep::set_pin("0x200F0104");
    setvbuf(stdout, nullptr, _IONBF, 0);
    Block block;
    block.verbose = verbose;
    uint8_t model = block.ask(0xE0);
    uint8_t resolution = block.ask(0x5C);
    uint8_t version = block.ask(0xE3);
    if (!zep::Interruptible::pause_ms(0)) return 0; // nobody was waited for: these are no answers
    printf("VERSION=%02X\n", version);
    print_sensor(model, resolution);
    return 0;
}
