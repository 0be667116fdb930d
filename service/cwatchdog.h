#ifndef SERVICE_CWATCHDOG_H
#define SERVICE_CWATCHDOG_H

/**
 * The hardware watchdog, /dev/watchdog. Once open it resets the device unless it is fed in time; a process
 * that ends without closing it leaves it armed. An object has no lock: one thread at a time uses it. errno has
 * no meaning after these functions; none of them waits.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Time-out after an open, in seconds. */
#define CWATCHDOG_TIMEOUT_S 30

typedef struct CWATCHDOG CWATCHDOG;

struct CWATCHDOG {
    void (*Close)(CWATCHDOG* watchdog); /* the functions below, filled by CWATCHDOG_Open */
    void (*KeepAlive)(CWATCHDOG* watchdog);
    void (*DisableWrite)(CWATCHDOG* watchdog);
    int32_t (*SetTimeout)(CWATCHDOG* watchdog, int32_t seconds);
    int32_t fd;      /* -1 while closed */
    int32_t timeout; /* seconds, as last reported */
};

/**
 * Fill in the object, open and arm the watchdog with a time-out of CWATCHDOG_TIMEOUT_S.
 * A failure prints a line on standard output and leaves `fd` -1; the other functions then do nothing.
 */
void CWATCHDOG_Open(CWATCHDOG* watchdog);

/** Disarm and close an open watchdog, with a line on standard output; nothing for a closed one. */
void CWATCHDOG_Close(CWATCHDOG* watchdog);

/** Feed an open watchdog. A write that fails is not reported: the reset that follows says it. */
void CWATCHDOG_KeepAlive(CWATCHDOG* watchdog);

/**
 * Write the magic close character to an open watchdog: closing it then disarms it.
 * Prints the write's result on standard output.
 */
void CWATCHDOG_DisableWrite(CWATCHDOG* watchdog);

/**
 * Set the time-out. The driver counts in units of two seconds, so an odd number loses one.
 *
 * @param seconds  2 to 120 in the camera's driver
 * @return the time-out that the driver has, seconds, also printed on standard output; the one asked for where the driver
 *         answers no request; -1 when closed
 */
int32_t CWATCHDOG_SetTimeout(CWATCHDOG* watchdog, int32_t seconds);

#ifdef __cplusplus
}
#endif

#endif
