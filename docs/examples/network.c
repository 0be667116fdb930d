/* The state of the network, as a settings page shows it. */
#include "common/qrn_netstatus.h"

#include <inttypes.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    const char* name = argc > 1 ? argv[1] : "eth0";
    int carrier = QRN_GetLinkCarrier(name);
    printf("%s: %s\n", name,
           carrier < 0 ? "no such interface"
           : carrier   ? "up"
                       : "down");

    QRN_IF_COUNTERS_S counters;
    if (QRN_GetIfCounters(name, &counters) == 0)
        printf("received %" PRIu64 ", sent %" PRIu64 " bytes\n",
               counters.rx_bytes, counters.tx_bytes);

    char gateway[QRN_ADDRESS_SIZE];
    if (QRN_GetDefaultGateway(name, gateway) == 0)
        printf("gateway %s\n", gateway);

    char servers[QRN_RESOLVERS][QRN_ADDRESS_SIZE];
    int count = QRN_GetResolvers(servers, QRN_RESOLVERS);
    for (int i = 0; i < count; ++i) printf("name server %s\n", servers[i]);
    return 0;
}
