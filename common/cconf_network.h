#ifndef COMMON_CCONF_NETWORK_H
#define COMMON_CCONF_NETWORK_H

/**
 * How the device is reached: interfaces, dial-in line, its name in the DNS. See cconf.h for what all readers
 * share.
 */

#include "common/cconf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CCONF_NETWORK_PATH "/etc/network/network.conf"

enum CCONF_NETWORK_LINK {
    CCONF_NETWORK_LINK_AUTO,
    CCONF_NETWORK_LINK_10HALF,
    CCONF_NETWORK_LINK_10FULL,
    CCONF_NETWORK_LINK_100HALF,
    CCONF_NETWORK_LINK_100FULL
};

/** The wired interface, IPv4. */
typedef struct {
    int32_t dhcp_enable;               /* 0..1 (0): ask a DHCP server for the addresses */
    char ip_address[CCONF_IPV4_SIZE];  /* IPv4 (192.168.0.100): own address */
    char subnet_mask[CCONF_IPV4_SIZE]; /* IPv4 (255.255.255.0): mask of the network */
    char gateway[CCONF_IPV4_SIZE];     /* IPv4 (192.168.0.1): default gateway; none while it is 0.0.0.0 */
    char dns_1[CCONF_IPV4_SIZE];       /* IPv4 (0.0.0.0): name server; none while it is 0.0.0.0 */
    char dns_2[CCONF_IPV4_SIZE];       /* IPv4 (0.0.0.0): second name server */
    char hostname[64];                 /* text (camera): own name */
    int32_t mtu;                       /* 576..1500 (1500): largest packet, bytes */
    int32_t link;                      /* auto|10half|10full|100half|100full (auto): speed and duplex */
} CCONF_NETWORK_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadNetwork(const char* path, CCONF_NETWORK_S* record);

/** Give every field its default. */
void CCONF_DefaultNetwork(CCONF_NETWORK_S* record);

#define CCONF_NETWORK6_PATH "/etc/network/network6.conf"

enum CCONF_NETWORK6_MODE { CCONF_NETWORK6_MODE_AUTO, CCONF_NETWORK6_MODE_DHCP, CCONF_NETWORK6_MODE_STATIC };

/** The wired interface, IPv6. */
typedef struct {
    int32_t ipv6_enable;              /* 0..1 (0): use IPv6 */
    int32_t mode;                     /* auto|dhcp|static (auto): where the address comes from */
    char ip_address[CCONF_IPV6_SIZE]; /* IPv6 (::): own address of mode static */
    int32_t prefix_length;            /* 1..128 (64): bits of the network */
    char gateway[CCONF_IPV6_SIZE];    /* IPv6 (::): default gateway; none while it is :: */
    char dns_1[CCONF_IPV6_SIZE];      /* IPv6 (::): name server; none while it is :: */
    char dns_2[CCONF_IPV6_SIZE];      /* IPv6 (::): second name server */
} CCONF_NETWORK6_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadNetwork6(const char* path, CCONF_NETWORK6_S* record);

/** Give every field its default. */
void CCONF_DefaultNetwork6(CCONF_NETWORK6_S* record);

#define CCONF_WIRELESS_PATH "/etc/network/wireless.conf"

enum CCONF_WIRELESS_MODE { CCONF_WIRELESS_MODE_MANAGED, CCONF_WIRELESS_MODE_ADHOC };
enum CCONF_WIRELESS_SECURITY {
    CCONF_WIRELESS_SECURITY_OPEN,
    CCONF_WIRELESS_SECURITY_WEP,
    CCONF_WIRELESS_SECURITY_WPA,
    CCONF_WIRELESS_SECURITY_WPA2
};

/** The wireless interface. */
typedef struct {
    int32_t enable;      /* 0..1 (0): use the wireless interface */
    char ssid[33];       /* text (): name of the network */
    int32_t mode;        /* managed|adhoc (managed): through an access point, or without */
    int32_t channel;     /* 0..14 (0): channel; 0: any */
    int32_t security;    /* open|wep|wpa|wpa2 (wpa2): how the network is protected */
    char passphrase[65]; /* text (): WPA passphrase, or 64 hexadecimal digits */
    int32_t wep_index;   /* 1..4 (1): number of the WEP key */
    char wep_key[27];    /* text (): WEP key, hexadecimal */
} CCONF_WIRELESS_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadWireless(const char* path, CCONF_WIRELESS_S* record);

/** Give every field its default. */
void CCONF_DefaultWireless(CCONF_WIRELESS_S* record);

#define CCONF_PPPOE_PATH "/etc/network/pppoe.conf"

/** The dial-in line. */
typedef struct {
    int32_t pppoe_enable;  /* 0..1 (0): dial in */
    char user[64];         /* text (): account */
    char password[64];     /* text (): its password */
    char interface[16];    /* text (eth0): interface of the modem */
    int32_t mtu;           /* 576..1492 (1492): largest packet, bytes */
    int32_t redial_time;   /* 1..3600 (30): pause before the next attempt, seconds */
    int32_t peer_dns;      /* 0..1 (1): use the name servers of the line */
    int32_t default_route; /* 0..1 (1): send everything through the line */
} CCONF_PPPOE_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadPppoe(const char* path, CCONF_PPPOE_S* record);

/** Give every field its default. */
void CCONF_DefaultPppoe(CCONF_PPPOE_S* record);

#define CCONF_DDNS_PATH "/etc/network/ddns.conf"

/** Dynamic DNS: keeps a name pointed at an address that changes. */
typedef struct {
    int32_t ddns_enable; /* 0..1 (0): keep the name up to date */
    char server[128];    /* text (): service that holds the name */
    int32_t port;        /* 1..65535 (80): its TCP port */
    char host[128];      /* text (): the name */
    char user[64];       /* text (): account at the service */
    char password[64];   /* text (): its password */
    int32_t interval;    /* 1..1440 (30): minutes between looks at the address */
} CCONF_DDNS_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadDdns(const char* path, CCONF_DDNS_S* record);

/** Give every field its default. */
void CCONF_DefaultDdns(CCONF_DDNS_S* record);

#ifdef __cplusplus
}
#endif

#endif
