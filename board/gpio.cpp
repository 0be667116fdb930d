// GPIO lines through the register-access driver.
#include "board/gpio.h"

#include "board/hi3516_reg_uapi.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr uint32_t kBanks[] = {
    0,                                                          // there is no group 0
    0x20160000, 0x20170000, 0x20180000, 0x20190000, 0x201A0000, //
    0x201B0000, 0x201C0000, 0x20200000, 0x20210000, 0x20220000,
};
constexpr int32_t kGroups = int32_t(sizeof kBanks / sizeof kBanks[0]);
constexpr uint32_t kDirection = 0x400; // bit set: output

// What switches a pin to GPIO; other lines need nothing.
struct Pin {
    int32_t group;
    int32_t bit;
    uint32_t request;
    uint32_t address;
    uint32_t value;
};
// clang-format off
constexpr Pin kPins[] = {
    {4, 0, HI3516_REG_CLEAR, 0x200F0060, 3},
    {4, 1, HI3516_REG_CLEAR, 0x200F0064, 3},
    {4, 6, HI3516_REG_CLEAR, 0x200F0078, 1},
    {4, 7, HI3516_REG_CLEAR, 0x200F007C, 1},
    {5, 0, HI3516_REG_CLEAR, 0x200F0080, 1},
    {5, 1, HI3516_REG_CLEAR, 0x200F0084, 1},
    {6, 4, HI3516_REG_SET,   0x200F00B0, 1},
    {8, 1, HI3516_REG_CLEAR, 0x200F00E4, 1},
    {8, 2, HI3516_REG_SET,   0x200F00E8, 1},
    {9, 0, HI3516_REG_CLEAR, 0x200F0114, 1},
    {9, 1, HI3516_REG_CLEAR, 0x200F0118, 3},
    {9, 2, HI3516_REG_CLEAR, 0x200F011C, 3},
    {9, 3, HI3516_REG_CLEAR, 0x200F0120, 3},
    {9, 7, HI3516_REG_SET,   0x200F0138, 2},
    {10, 0, HI3516_REG_SET,  0x200F013C, 2},
    {10, 1, HI3516_REG_SET,  0x200F0140, 2},
    {10, 2, HI3516_REG_SET,  0x200F0144, 2},
};
// clang-format on

HI3516_REG_S request(int fd, uint32_t code, uint32_t address, uint32_t value)
{
    HI3516_REG_S record = {address, value};
    ioctl(fd, code, &record);
    return record;
}

void switch_pin(int fd, int32_t group, int32_t bit)
{
    for (const Pin& pin : kPins)
        if (pin.group == group && pin.bit == bit) request(fd, pin.request, pin.address, pin.value);
}

bool valid_group(int32_t group) { return group >= 1 && group < kGroups; }

uint32_t mask_of(int32_t bit) { return bit >= 0 && bit < 32 ? uint32_t(1) << bit : 0; }

// A line's data register lies at its mask shifted by two, so one access touches one line.
uint32_t data_register(int32_t group, uint32_t mask) { return kBanks[group] + mask * 4; }

bool invalid(const char* function, int fd)
{
    if (fd >= 0) return false;
    printf("Error : %s Invalid handle '%d'\n", function, fd);
    return true;
}

} // namespace

int open_gpio(void)
{
    int fd = open(HI3516_REG_DEVICE, O_RDWR | O_CLOEXEC);
    if (fd < 0) printf("Error : %s can not open '%s'\n", __func__, HI3516_REG_DEVICE);
    return fd;
}

void set_gpio(int fd, int32_t group, int32_t bit, int32_t value)
{
    if (invalid(__func__, fd)) return;
    switch_pin(fd, group, bit);
    if (!valid_group(group)) return;
    uint32_t mask = mask_of(bit);
    request(fd, HI3516_REG_SET, kBanks[group] + kDirection, mask);
    request(fd, value ? HI3516_REG_SET : HI3516_REG_CLEAR, data_register(group, mask), mask);
}

int32_t get_gpio(int fd, int32_t group, int32_t bit)
{
    if (invalid(__func__, fd)) return -1;
    switch_pin(fd, group, bit);
    if (!valid_group(group)) return -1;
    uint32_t mask = mask_of(bit);
    request(fd, HI3516_REG_CLEAR, kBanks[group] + kDirection, mask);
    return int32_t(request(fd, HI3516_REG_READ, data_register(group, mask), 0).value);
}

int close_gpio(int fd)
{
    if (fd >= 0) close(fd);
    return 0;
}
