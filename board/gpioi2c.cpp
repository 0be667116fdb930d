// Registers of devices on the bit-banged I2C bus.
#include "board/gpioi2c.h"

#include "board/gpioi2c_uapi.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

uint32_t make_word(uint32_t device, uint32_t reg, uint32_t value)
{
    return (device & 0xFF) << 24 | (reg & 0xFF) << 16 | (value & 0xFF);
}

bool invalid(const char* function, int fd)
{
    if (fd >= 0) return false;
    printf("Error : %s Invalid handle '%d'\n", function, fd);
    return true;
}

} // namespace

int open_gpioi2c(void)
{
    int fd = open(GPIOI2C_DEVICE, O_RDWR | O_CLOEXEC);
    if (fd < 0) printf("Error : %s can not open '%s'\n", __func__, GPIOI2C_DEVICE);
    return fd;
}

int32_t write_gpioi2c(int fd, uint32_t device, uint32_t reg, uint32_t value)
{
    if (invalid(__func__, fd)) return -1;
    uint32_t word = make_word(device, reg, value);
    return ioctl(fd, GPIOI2C_WRITE, &word);
}

int32_t read_gpioi2c(int fd, uint32_t device, uint32_t reg)
{
    if (invalid(__func__, fd)) return -1;
    uint32_t word = make_word(device, reg, 0);
    if (ioctl(fd, GPIOI2C_READ, &word) < 0) return -1;
    return int32_t(word & 0xFF);
}

int close_gpioi2c(int fd)
{
    if (fd >= 0) close(fd);
    return 0;
}
