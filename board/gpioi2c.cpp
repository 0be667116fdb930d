// Registers of devices on the bit-banged I2C bus.
#include "board/gpioi2c.h"

#include "board/gpioi2c_uapi.h"
#include "board/handle.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using namespace zep;

uint32_t make_word(uint32_t device, uint32_t reg, uint32_t value)
{
    return (device & 0xFF) << 24 | (reg & 0xFF) << 16 | (value & 0xFF);
}

} // namespace

int open_gpioi2c(void) { return open_handle(__func__, GPIOI2C_DEVICE); }

int32_t write_gpioi2c(int fd, uint32_t device, uint32_t reg, uint32_t value)
{
    if (invalid_handle(__func__, fd)) return -1;
    uint32_t word = make_word(device, reg, value);
    return ioctl(fd, GPIOI2C_WRITE, &word);
}

int32_t read_gpioi2c(int fd, uint32_t device, uint32_t reg)
{
    if (invalid_handle(__func__, fd)) return -1;
    uint32_t word = make_word(device, reg, 0);
    if (ioctl(fd, GPIOI2C_READ, &word) < 0) return -1;
    return int32_t(word & 0xFF);
}

int close_gpioi2c(int fd)
{
    if (fd >= 0) close(fd);
    return 0;
}
