/* Long work under the watchdog. */
#include "service/cwatchdog.h"

#include <stdio.h>
#include <unistd.h>

int main(void)
{
    CWATCHDOG watchdog;
    CWATCHDOG_Open(&watchdog);
    if (watchdog.fd < 0) return 1;
    watchdog.SetTimeout(&watchdog, 60);

    for (int step = 1; step <= 3; ++step) {
        sleep(20); /* the work */
        watchdog.KeepAlive(&watchdog);
        printf("step %d done\n", step);
    }

    /* Without this the device resets a minute after the program's end. */
    watchdog.Close(&watchdog);
    return 0;
}
