/* Debug lines to a console elsewhere; here the console is this program. */
#include "common/qrn_udp.h"
#include "service/cudpdebug.h"

#include <stdio.h>

static CUDPDEBUG debug_log; /* 100 KiB: not for the stack */

int main(void)
{
    int console = QRN_OpenLocalUDPSSocket(5140);
    if (console < 0) return 1;

    /* With 0 instead of 1 printing does nothing at no cost. */
    if (CUDPDEBUG_Init(&debug_log, 1, "127.0.0.1", 5140, "cam") < 0)
        return 1;
    debug_log.Printf(&debug_log, "motion in zone %d", 2);

    char line[256];
    int length = QRN_RecvUDPTimeout(console, line, sizeof line, NULL, 3, 0);
    if (length > 0) printf("%.*s\n", length, line);
    debug_log.Close(&debug_log);
    return 0;
}
