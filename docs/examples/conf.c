/* Moves the web server to another port, as its settings page does. */
#include "common/cutil_conf.h"

#include <stdio.h>

int main(void)
{
    char port[CUTIL_CONF_VALUE_SIZE];
    if (CUTIL_GetConfValue("/etc/web.conf", "port", port) < 0) {
        perror("/etc/web.conf");
        return 1;
    }
    printf("the web server is at port %s\n", port);

    /* -1: another writer holds the lock; the file is as it was. */
    if (CUTIL_SetConfValue("/etc/web.conf", "port", "8080") < 0) return 1;
    CUTIL_GetConfValue("/etc/web.conf", "port", port);
    printf("and now at port %s\n", port);
    return 0;
}
