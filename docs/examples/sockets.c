/* A request of eight bytes and its reply, both whole or not at all. */
#include "common/qrn_tcp.h"

#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

int main(void)
{
    char request[9] = "", reply[9] = "";
    int server = TSER_InitServer(5100);
    int client = QRN_ConnectTCPSocket("127.0.0.1", 5100);
    int peer = accept(server, NULL, NULL);
    if (server < 0 || client < 0 || peer < 0)
        return 1; /* the library has said why */

    /* At most 3 s each. -1: time is up, -2: the other end is gone. */
    if (QRN_SendTCPStream(client, "GET TIME", 8, 3) != 8 ||
        QRN_RecvTCPStream(peer, request, 8, 3) != 8 ||
        QRN_SendTCPStream(peer, "12:34:56", 8, 3) != 8 ||
        QRN_RecvTCPStream(client, reply, 8, 3) != 8)
        return 1;
    printf("%s -> %s\n", request, reply);

    close(peer);
    if (QRN_RecvTCPStream(client, reply, 8, 3) == -2)
        printf("the peer has closed\n");
    close(client);
    close(server);
    return 0;
}
