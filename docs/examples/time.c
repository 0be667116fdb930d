/* The clock, and work that has to end within a time. */
#define _DEFAULT_SOURCE /* usleep */
#include "common/ctime.h"

#include <stdio.h>
#include <sys/time.h>
#include <unistd.h>

int main(void)
{
    CTIME_TIME_S now;
    if (CTIME_GetRTC(&now) == 0)
        printf("%04d-%02d-%02d %02d:%02d:%02d\n", now.year, now.month,
               now.day, now.hour, now.minute, now.second);

    struct timeval start;
    gettimeofday(&start, NULL);
    int polls = 0;
    /* -1 while the limit has not passed; up to a second early. */
    while (CTIME_IsExpired(start.tv_sec, start.tv_usec, 2500) < 0) {
        usleep(100000);
        ++polls;
    }
    printf("%s\n",
           polls >= 10 && polls <= 26 ? "time is up" : "the clock was set");
    return 0;
}
