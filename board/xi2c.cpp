// xi2c, xgpioi2c: reads or writes one register of an I2C device.
#include "board/applets.h"
#include "board/gpioi2c.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// 0x for hexadecimal, a leading 0 for octal. The nearest number of 32 bits, whatever the width of long is.
uint32_t number(const char* text)
{
    long long value = strtoll(text, nullptr, 0);
    return uint32_t(std::clamp<long long>(value, INT32_MIN, UINT32_MAX));
}

} // namespace

int xi2c_main(int argc, char** argv)
{
    if (argc != 3 && argc != 4) {
        puts("Usage : ");
        printf("    GET : %s  device_addr  reg_addr \n", argv[0]);
        printf("    SET : %s  device_addr  reg_addr  reg_value \n", argv[0]);
        return 0;
    }
    int fd = open_gpioi2c();
    if (argc == 3)
        printf("0x%02X\n", unsigned(read_gpioi2c(fd, number(argv[1]), number(argv[2]))));
    else
        write_gpioi2c(fd, number(argv[1]), number(argv[2]), number(argv[3]));
    close_gpioi2c(fd);
    return 0;
}
