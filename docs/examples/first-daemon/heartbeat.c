/*
 * A first daemon: counts its beats in a file, so that other programs see whether the camera works.
 *
 * /etc/heartbeat.conf: period=SECONDS, 1 to 60; 1 without it. Stays in the foreground; SIGTERM ends it.
 */
#define _DEFAULT_SOURCE /* sleep, %m */
#include "common/cutil_conf.h"
#include "common/cutil_pid.h"
#include "service/cthread.h"

#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

static const char kSettings[] = "/etc/heartbeat.conf";
static const char kBeats[] = "/tmp/heartbeat";
static const char kBeatsNew[] = "/tmp/heartbeat.new";
static const char kPid[] = "/tmp/heartbeat.pid";

struct heartbeat {
    int period;          /* seconds between two beats */
    int second;          /* since the last one */
    unsigned long beats; /* since the start */
};

/* Opened, read and closed: an upgrade kills whatever keeps a file of /etc open. */
static int read_period(void)
{
    char value[CUTIL_CONF_VALUE_SIZE];
    if (CUTIL_GetConfValue(kSettings, "period", value) < 0) return 1;
    const int seconds = atoi(value);
    return seconds >= 1 && seconds <= 60 ? seconds : 1;
}

/* A reader finds the old number or the new one, never half a line. */
static int store(unsigned long beats)
{
    FILE* file = fopen(kBeatsNew, "w");
    if (!file) return -1;
    const int printed = fprintf(file, "beats=%lu\n", beats);
    if (fclose(file) != 0 || printed < 0) return -1;
    return rename(kBeatsNew, kBeats);
}

/* On the worker's thread; a stop waits for the tick that runs, so it is short. */
static int32_t tick(void* context)
{
    struct heartbeat* own = context;
    sleep(1);
    if (++own->second < own->period) return 0;
    own->second = 0;
    ++own->beats;
    if (store(own->beats) < 0)
        syslog(LOG_ERR, "beat %lu is not stored: %m", own->beats);
    return 0; /* the next beat tries again */
}

int main(void)
{
    static CTHREAD worker; /* must outlive the thread */
    static struct heartbeat own;
    sigset_t ends;
    int number;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends,
                    NULL); /* before the worker, which inherits it */

    openlog("heartbeat", LOG_PID, LOG_DAEMON);
    own.period = read_period();
    if (CUTIL_WritePidFile(kPid) != 1)
        return 1; /* the system log says why */
    if (CTHREAD_Init(&worker, &own, NULL, tick, NULL) < 0 ||
        CTHREAD_Start(&worker) < 0)
        return 1;
    syslog(LOG_INFO, "one beat in %d s", own.period);
    sigwait(&ends, &number);
    CTHREAD_Stop(&worker);
    syslog(LOG_INFO, "ends after %lu beats", own.beats);
    unlink(kPid);
    return 0;
}
