// GPIO lines through the register-access driver.
#include "board/gpio.h"

#include "board/handle.hpp"
#include "board/hi3516_reg_uapi.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using namespace zep;

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

// One request; `value` receives what the driver leaves there. False when it refuses.
bool request(int fd, uint32_t code, uint32_t address, uint32_t& value)
{
    HI3516_REG_S record = {address, value};
    bool done = ioctl(fd, code, &record) >= 0;
    value = record.value;
    return done;
}

bool change(int fd, uint32_t code, uint32_t address, uint32_t bits)
{
    return request(fd, code, address, bits);
}

const Pin* find_pin(int32_t group, int32_t bit)
{
    for (const Pin& pin : kPins)
        if (pin.group == group && pin.bit == bit) return &pin;
    return nullptr;
}

void switch_pin(int fd, int32_t group, int32_t bit)
{
    if (const Pin* pin = find_pin(group, bit)) change(fd, pin->request, pin->address, pin->value);
}

bool valid_group(int32_t group) { return group >= 1 && group < kGroups; }

bool valid_line(int32_t group, int32_t bit) { return valid_group(group) && bit >= 0 && bit < 8; }

uint32_t mask_of(int32_t bit) { return bit >= 0 && bit < 32 ? uint32_t(1) << bit : 0; }

// A line's data register lies at its mask shifted by two, so one access touches one line.
uint32_t data_register(int32_t group, uint32_t mask) { return kBanks[group] + mask * 4; }

bool drive(int fd, const GPIO_STATE_S& state, uint32_t mask)
{
    return change(fd, state.level ? HI3516_REG_SET : HI3516_REG_CLEAR, data_register(state.group, mask),
                  mask);
}

} // namespace

int open_gpio(void) { return open_handle(__func__, HI3516_REG_DEVICE); }

void set_gpio(int fd, int32_t group, int32_t bit, int32_t value)
{
    if (invalid_handle(__func__, fd)) return;
    switch_pin(fd, group, bit);
    if (!valid_group(group)) return;
    uint32_t mask = mask_of(bit);
    change(fd, HI3516_REG_SET, kBanks[group] + kDirection, mask);
    change(fd, value ? HI3516_REG_SET : HI3516_REG_CLEAR, data_register(group, mask), mask);
}

int32_t get_gpio(int fd, int32_t group, int32_t bit)
{
    if (invalid_handle(__func__, fd)) return -1;
    switch_pin(fd, group, bit);
    if (!valid_group(group)) return -1;
    uint32_t mask = mask_of(bit);
    change(fd, HI3516_REG_CLEAR, kBanks[group] + kDirection, mask);
    uint32_t data = 0;
    return request(fd, HI3516_REG_READ, data_register(group, mask), data) ? int32_t(data) : -1;
}

int32_t save_gpio(int fd, int32_t group, int32_t bit, GPIO_STATE_S* state)
{
    if (invalid_handle(__func__, fd) || !valid_line(group, bit)) return -1;
    uint32_t mask = mask_of(bit);
    uint32_t direction = 0, data = 0, multiplex = 0;
    const Pin* pin = find_pin(group, bit);
    if (!request(fd, HI3516_REG_READ, kBanks[group] + kDirection, direction) ||
        !request(fd, HI3516_REG_READ, data_register(group, mask), data) ||
        (pin && !request(fd, HI3516_REG_READ, pin->address, multiplex)))
        return -1;
    *state = {group, bit, (direction & mask) != 0, (data & mask) != 0, pin ? multiplex & pin->value : 0};
    return 0;
}

int32_t restore_gpio(int fd, const GPIO_STATE_S* state)
{
    if (invalid_handle(__func__, fd) || !valid_line(state->group, state->bit)) return -1;
    uint32_t mask = mask_of(state->bit);
    uint32_t direction = 0;
    bool driven = !request(fd, HI3516_REG_READ, kBanks[state->group] + kDirection, direction) ||
                  (direction & mask) != 0;
    bool done = true;
    // The level first: an output must not show another one for a moment, and a latch can only be written
    // through an output.
    if (state->output || driven) done &= drive(fd, *state, mask);
    done &= change(fd, state->output ? HI3516_REG_SET : HI3516_REG_CLEAR, kBanks[state->group] + kDirection,
                   mask);
    if (state->output && !driven)
        done &= drive(fd, *state, mask); // the latch of an input may not have taken it
    const Pin* pin = find_pin(state->group, state->bit);
    if (!pin) return done ? 0 : -1;
    uint32_t zeros = pin->value & ~state->multiplex;
    if (state->multiplex) done &= change(fd, HI3516_REG_SET, pin->address, state->multiplex);
    if (zeros) done &= change(fd, HI3516_REG_CLEAR, pin->address, zeros);
    return done ? 0 : -1;
}

int close_gpio(int fd)
{
    if (fd >= 0) close(fd);
    return 0;
}
