/* A job in a thread of its own. */
#define _DEFAULT_SOURCE /* usleep */
#include "service/cthread.h"

#include <stdatomic.h>
#include <stdio.h>
#include <unistd.h>

static atomic_int ticks;

static int32_t tick(void* context)
{
    (void)context;
    ++ticks;
    usleep(10000);
    return 0; /* negative: no further tick */
}

static int32_t end(void* context)
{
    printf("%s ends\n", (const char*)context);
    return 0;
}

int main(void)
{
    static CTHREAD thread; /* must outlive the thread */
    static char name[] = "the worker";
    if (CTHREAD_Init(&thread, name, NULL, tick, end) < 0) return 1;
    if (thread.Start(&thread) < 0)
        return 1; /* not seen running within 3 s */
    usleep(50000);
    if (thread.Stop(&thread) < 0)
        return 1; /* still at its tick after 3 s, or ended before */
    printf("it %s\n", ticks > 0 ? "has worked" : "never ran");
    return 0;
}
