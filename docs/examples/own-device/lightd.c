/*
 * lightd SECONDS: says for so long when it becomes dark and bright. A program of the camera: it knows the driver of
 * /dev/light and nothing of a simulator.
 */
#include "light_uapi.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static int64_t now_ms(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* One event, waited for until `end_ms`. False at the end, or when the sensor is beyond help. */
static int say_event(int sensor, int64_t end_ms)
{
    struct pollfd wait = {sensor, POLLIN, 0};
    struct light_event event;
    const int64_t left_ms = end_ms - now_ms();

    if (left_ms <= 0 || poll(&wait, 1, (int)left_ms) <= 0) return 0;
    if (read(sensor, &event, sizeof event) != sizeof event) {
        printf("lightd: read: %s\n", strerror(errno));
        return errno ==
               EIO; /* a disturbed bus: the next reading may be good */
    }
    printf("%s, %u lux\n", event.dark ? "dark" : "bright", event.lux);
    return 1;
}

int main(int argc, char** argv)
{
    const struct light_limit limit = {20, 40};
    const int64_t end_ms =
        now_ms() + 1000 * (argc > 1 ? atoi(argv[1]) : 10);
    const int sensor = open("/dev/light", O_RDONLY | O_CLOEXEC);

    if (sensor < 0 || ioctl(sensor, LIGHT_SET_LIMIT, &limit) < 0) {
        printf("lightd: /dev/light: %s\n", strerror(errno));
        return 1;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    while (say_event(sensor, end_ms)) continue;
    return 0;
}
