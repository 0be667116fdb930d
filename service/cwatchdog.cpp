// The hardware watchdog.
#include "service/cwatchdog.h"

#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <unistd.h>

static_assert(sizeof(void*) != 4 || (sizeof(CWATCHDOG) == 24 && offsetof(CWATCHDOG, fd) == 16),
              "the device's other programs share the record");

void CWATCHDOG_Open(CWATCHDOG* watchdog)
{
    *watchdog = {.Close = CWATCHDOG_Close,
                 .KeepAlive = CWATCHDOG_KeepAlive,
                 .DisableWrite = CWATCHDOG_DisableWrite,
                 .SetTimeout = CWATCHDOG_SetTimeout,
                 .fd = open("/dev/watchdog", O_WRONLY | O_CLOEXEC),
                 .timeout = 0};
    if (watchdog->fd < 0) {
        puts("watchdog open error !");
        return;
    }
    watchdog->SetTimeout(watchdog, CWATCHDOG_TIMEOUT_S);
}

void CWATCHDOG_Close(CWATCHDOG* watchdog)
{
    if (watchdog->fd < 0) return;
    watchdog->DisableWrite(watchdog);
    close(watchdog->fd);
    watchdog->fd = -1;
    puts("close watchdog");
}

void CWATCHDOG_KeepAlive(CWATCHDOG* watchdog)
{
    if (watchdog->fd < 0) return;
    const char zero = 0;
    // A watchdog that is not fed resets the device, which no caller could do better.
    [[maybe_unused]] ssize_t written = write(watchdog->fd, &zero, 1);
}

void CWATCHDOG_DisableWrite(CWATCHDOG* watchdog)
{
    if (watchdog->fd < 0) return;
    int result = int(write(watchdog->fd, "V", 1));
    printf("set disable write watchdog : %d\n", result);
}

int32_t CWATCHDOG_SetTimeout(CWATCHDOG* watchdog, int32_t seconds)
{
    watchdog->timeout = seconds;
    if (watchdog->fd < 0) return -1;
    int units = seconds / 2;
    ioctl(watchdog->fd, WDIOC_SETTIMEOUT, &units);
    ioctl(watchdog->fd, WDIOC_GETTIMEOUT, &units); // a driver without it leaves units unchanged
    watchdog->timeout = int32_t(uint32_t(units) * 2);
    printf("The timeout was set to %d seconds\n", watchdog->timeout);
    return watchdog->timeout;
}
