// The driver of the I2C bus on GPIO lines. One word goes by address: device in bits 24 to 31, register in
// bits 16 to 23, data in the low byte. A device of the bus is a file i2c/XX (its address in hexadecimal)
// with one byte a register; registers behind its end are 0. Nobody answers for other addresses: ENXIO.
#include "sim/clock/journal.hpp"
#include "sim/models/request_device.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>

namespace vcam::models {
namespace {
namespace gpioi2c_driver {

constexpr uint32_t kRead = 1, kWrite = 3;
constexpr RequestName kNames[] = {{kRead, "read"}, {kWrite, "write"}};

struct Word {
    explicit Word(uint32_t word) : device(uint8_t(word >> 24)), reg(uint8_t(word >> 16)), data(uint8_t(word))
    {
    }
    uint8_t device, reg, data;
};

std::string device_file(uint8_t device)
{
    char name[8];
    snprintf(name, sizeof name, "i2c/%02X", device);
    return state::path(name);
}

class GpioI2c final : public RequestDevice {
public:
    GpioI2c() : RequestDevice("/dev/gpioi2c", "gpioi2c", kNames) {}

    int ioctl(int, uint32_t request, void* argument) override
    {
        if (request != kRead && request != kWrite) return -ENOTTY;
        if (!argument) return -EFAULT;
        uint32_t bits = 0;
        memcpy(&bits, argument, sizeof bits);
        Word word(bits);
        const int result = run(request, word);
        note(request, word, result);
        if (result == 0 && request == kRead) {
            bits = (bits & ~0xFFu) | word.data;
            memcpy(argument, &bits, sizeof bits);
        }
        return result;
    }

private:
    static int run(uint32_t request, Word& word)
    {
        const raw::Fd fd(raw::open(device_file(word.device).c_str(), O_RDWR | O_CLOEXEC));
        if (!fd) return -ENXIO;
        if (request == kWrite) return raw::pwrite_all(fd.get(), &word.data, 1, word.reg) ? 0 : -EIO;
        word.data = 0;
        return raw::pread(fd.get(), &word.data, 1, word.reg) < 0 ? -EIO : 0;
    }
    void note(uint32_t request, const Word& word, int result) const
    {
        char text[96];
        snprintf(text, sizeof text, "%s 0x%02X 0x%02X %s0x%02X%s", request_name(request), word.device,
                 word.reg, request == kRead ? "= " : "", word.data, result < 0 ? " no answer" : "");
        journal::add("gpioi2c", text);
    }
};

} // namespace gpioi2c_driver
} // namespace

Model& gpioi2c()
{
    static gpioi2c_driver::GpioI2c device;
    return device;
}

} // namespace vcam::models
