// xgpio: reads or drives one GPIO line.
#include "board/applets.h"
#include "board/gpio.h"

#include "common/base/parse_int.hpp"

#include <cstdio>

namespace {

int read_line(int group, int bit)
{
    int fd = open_gpio();
    int value = get_gpio(fd, group, bit);
    close_gpio(fd);
    if (value < 0)
        printf("Error : get '%d'\n", value);
    else
        printf("%d \n", value > 0);
    return 0;
}

int drive_line(int group, int bit, int value)
{
    int fd = open_gpio();
    set_gpio(fd, group, bit, value);
    close_gpio(fd);
    return 0;
}

} // namespace

int xgpio_main(int argc, char** argv)
{
    using zep::parse_int;
    if (argc == 3) return read_line(parse_int(argv[1]), parse_int(argv[2]));
    if (argc == 4) return drive_line(parse_int(argv[1]), parse_int(argv[2]), parse_int(argv[3]));
    puts("Usage : ");
    printf("    GET : %s  group_no  bit_no \n", argv[0]);
    printf("    SET : %s  group_no  bit_no  0/1 \n", argv[0]);
    return 0;
}
