/* A counter that two processes share. */
#include "common/cmmap.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

enum { KEY = 0x5A01 };
static const char path[] = "/tmp/counter";

static void count_up(CMMAP_S* region, int times)
{
    while (times-- > 0) {
        /* Reading and writing are one step only under one lock. */
        region->Lock(region);
        ++*(int*)region->address;
        region->Unlock(region);
    }
}

int main(void)
{
    CMMAP_S region;
    if (CMMAP_Init(&region, path, KEY, CMMAP_CREATE, sizeof(int)) < 0)
        return 1;

    pid_t other = fork();
    if (other == 0) {
        CMMAP_S own;
        if (CMMAP_Init(&own, path, KEY, CMMAP_ATTACH, sizeof(int)) < 0)
            _exit(1);
        count_up(&own, 1000);
        own.Deinit(&own);
        _exit(0);
    }
    count_up(&region, 1000);
    waitpid(other, NULL, 0);

    int count;
    region.Read(&region, &count, sizeof count);
    printf("counted to %d\n", count);
    region.Deinit(&region); /* the creator's end removes the semaphore */
    return 0;
}
