#ifndef COMMON_QRN_NETSTATUS_H
#define COMMON_QRN_NETSTATUS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * What the network looks like from this device: links, counters, gateways, resolvers. Read from the kernel at
 * each call; nothing is kept and nothing is printed. May be called from any thread. An interface name longer
 * than 15 characters, empty, or holding "/" is unknown. Null arguments give -1.
 */

/** Text of an IPv4 or IPv6 address, with a zone ("fe80::1%eth0") and the terminator. */
#define QRN_ADDRESS_SIZE 62

/** Text of a hardware address, "02:11:22:00:00:00", with the terminator. */
#define QRN_HWADDR_SIZE 18

/** Servers that the resolver uses at most. */
#define QRN_RESOLVERS 3

typedef struct {
    uint64_t rx_bytes;
    uint64_t rx_packets;
    uint64_t rx_errors;
    uint64_t rx_drops;
    uint64_t tx_bytes;
    uint64_t tx_packets;
    uint64_t tx_errors;
    uint64_t tx_drops;
} QRN_IF_COUNTERS_S;

/**
 * Whether a link carries: its interface is up and the other end is there.
 *
 * @return 1; 0 when not, also for an interface that is down; -1 for an unknown interface
 */
int32_t QRN_GetLinkCarrier(const char* interface);

/**
 * Counters of an interface since it was made, from /proc/net/dev.
 *
 * @param counters  receives all of them; untouched on failure
 * @return 0; -1 for an unknown interface
 */
int32_t QRN_GetIfCounters(const char* interface, QRN_IF_COUNTERS_S* counters);

/**
 * Compare two readings of a counter. The counters of a 32-bit kernel wrap at 2^32: a later reading that is
 * smaller, with both below 2^32, counts as wrapped once.
 *
 * @return the growth from the earlier to the later reading
 */
uint64_t QRN_CounterDifference(uint64_t earlier, uint64_t later);

/**
 * The gateway of the IPv4 default route: of the routes to everywhere that are up, the first of lowest metric.
 * That route has no IPv4 gateway when it leads into a point-to-point link, is a refusal ("unreachable") or
 * has an IPv6 next hop.
 *
 * @param interface  only routes of this interface; null: any
 * @param address    receives the text, QRN_ADDRESS_SIZE bytes; untouched on failure
 * @return 0; -1 without a default route, and when it has no IPv4 gateway
 */
int32_t QRN_GetDefaultGateway(const char* interface, char* address);

/**
 * The gateway of the IPv6 default route, as QRN_GetDefaultGateway. A link-local address carries its zone,
 * "fe80::1%eth0": getaddrinfo() reads that, inet_pton() does not.
 *
 * @param interface  only routes of this interface; null: any
 * @param address    receives the text, QRN_ADDRESS_SIZE bytes; untouched on failure
 * @return 0; -1 without a default route, and when it has no gateway
 */
int32_t QRN_GetDefaultGateway6(const char* interface, char* address);

/**
 * Name servers of "/etc/resolv.conf" in their order, at most QRN_RESOLVERS, as the resolver uses them. Lines
 * whose address is neither IPv4 nor IPv6 are passed over. A zone behind a link-local address is kept, one
 * behind another IPv6 address is dropped.
 *
 * @param list  receives the texts, QRN_ADDRESS_SIZE bytes each
 * @param max   places in the list, QRN_RESOLVERS for all
 * @return how many; -1 when the file cannot be opened
 */
int32_t QRN_GetResolvers(char (*list)[QRN_ADDRESS_SIZE], int32_t max);

/**
 * Hardware address of an interface.
 *
 * @param address  receives six bytes as text, QRN_HWADDR_SIZE bytes; untouched on failure
 * @return 0; -1 for an unknown interface, or one without an Ethernet address
 */
int32_t QRN_GetHardwareAddress(const char* interface, char* address);

#ifdef __cplusplus
}
#endif

#endif
