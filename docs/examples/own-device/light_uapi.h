/* /dev/light: what the driver of the light sensor and its programs agree on. */
#pragma once

#include <stdint.h>
#include <sys/ioctl.h>

struct light_limit {
    uint32_t dark_lux;   /*  0  below it is dark */
    uint32_t bright_lux; /*  4  from it on is bright; not below dark_lux */
};

#define LIGHT_SET_LIMIT _IOW('L', 1, struct light_limit)
#define LIGHT_GET_LIMIT _IOR('L', 2, struct light_limit)
#define LIGHT_CALIBRATE                                                    \
    _IO('L',                                                               \
        3) /* the argument is a percentage, 50..200; 100 when the power comes */

/* read() gives one record. The first is there at once, each further one when dark and bright have changed. */
struct light_event {
    uint32_t lux;  /*  0  */
    uint32_t dark; /*  4  1: dark */
};
