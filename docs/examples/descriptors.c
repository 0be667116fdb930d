/* An event loop over descriptors that come and go. */
#include "service/cfdevent.h"

#include <stdio.h>
#include <unistd.h>

int main(void)
{
    int key[2], timer[2];
    CFDEVENT_S registry;
    if (pipe(key) < 0 || pipe(timer) < 0) return 1;
    CFDEVENT_Init(&registry, 0);
    CFDEVENT_Add(&registry, key[0]);
    CFDEVENT_Add(&registry, timer[0]);
    if (write(timer[1], "t", 1) != 1) return 1;

    while (CFDEVENT_Wait(&registry, 500000) == 0) {
        /* Occupied slots stand in front: the first empty one ends the walk.
         */
        for (int i = 0; i < CFDEVENT_SLOTS && registry.slots[i] >= 0; ++i) {
            char byte;
            if (!CFDEVENT_IsSet(&registry, registry.slots[i])) continue;
            if (read(registry.slots[i], &byte, 1) == 1)
                printf("slot %d says %c\n", i, byte);
        }
    }
    printf("nothing for half a second\n");
    return 0;
}
