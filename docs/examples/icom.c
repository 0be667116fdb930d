/* One process tells another that the motion settings have changed. */
#include "common/cicomm.h"

#include <stdio.h>
#include <string.h>

enum { MOTION_PORT = 4321, RELOAD = 7 };

static CICOMM daemon_end, tool_end; /* 200 KiB each: not for the stack */

int main(void)
{
    if (CICOMM_Init(&daemon_end, MOTION_PORT) < 0 ||
        CICOMM_Init(&tool_end, 0) < 0)
        return 1;

    const char* zone = "zone 2";
    if (tool_end.Send(&tool_end, RELOAD, MOTION_PORT, zone,
                      (int32_t)strlen(zone)) < 0)
        return 1;

    /* Any process can send any bytes: only what passes the check is used.
     */
    uint32_t command;
    int32_t length = CICOMM_RecvChecked(&daemon_end, &command);
    if (length >= 0)
        printf("command %u, %d bytes: %.*s\n", command, length, length,
               (const char*)daemon_end.GetRecvData(&daemon_end));

    tool_end.Close(&tool_end);
    daemon_end.Close(&daemon_end);
    return 0;
}
