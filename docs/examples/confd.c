/* Where the web server is, as the daemon knows or else the file. */
#include "common/cconf_server.h"
#include "common/cconfd.h"

#include <stdio.h>

int main(void)
{
    CCONFD_CLIENT_S client;
    CCONFD_Init(&client, NULL);

    char port[8];
    if (CCONFD_Get(&client, "/etc/web.conf:port", port, sizeof port) == 0) {
        printf("the daemon says port %s\n", port);
    } else {
        /* The client stays usable: once a pause is over it tries again. */
        CCONF_WEB_S web;
        CCONF_DefaultWeb(&web);
        CCONF_ReadWeb(CCONF_WEB_PATH, &web);
        printf("the file says port %d\n", (int)web.port);
    }
    CCONFD_Close(&client);
    return 0;
}
