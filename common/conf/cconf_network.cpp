// Readers of the configuration files of the network.
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;

// "/etc/network/network.conf"
namespace network {
using Record = CCONF_NETWORK_S;

constexpr ConfKey kKeys[] = {
    conf_flag("dhcp_enable", CONF_FIELD(dhcp_enable), "0"),
    conf_ipv4("ip_address", CONF_FIELD(ip_address), "192.168.0.100"),
    conf_ipv4("subnet_mask", CONF_FIELD(subnet_mask), "255.255.255.0"),
    conf_ipv4("gateway", CONF_FIELD(gateway), "192.168.0.1"),
    conf_ipv4("dns_1", CONF_FIELD(dns_1), "0.0.0.0"),
    conf_ipv4("dns_2", CONF_FIELD(dns_2), "0.0.0.0"),
    conf_text("hostname", CONF_FIELD(hostname), "camera"),
    conf_number("mtu", CONF_FIELD(mtu), {576, 1500}, "1500"),
    conf_choice("link", CONF_FIELD(link), "auto 10half 10full 100half 100full", "auto"),
};
} // namespace network

// "/etc/network/network6.conf"
namespace network6 {
using Record = CCONF_NETWORK6_S;

constexpr ConfKey kKeys[] = {
    conf_flag("ipv6_enable", CONF_FIELD(ipv6_enable), "0"),
    conf_choice("mode", CONF_FIELD(mode), "auto dhcp static", "auto"),
    conf_ipv6("ip_address", CONF_FIELD(ip_address), "::"),
    conf_number("prefix_length", CONF_FIELD(prefix_length), {1, 128}, "64"),
    conf_ipv6("gateway", CONF_FIELD(gateway), "::"),
    conf_ipv6("dns_1", CONF_FIELD(dns_1), "::"),
    conf_ipv6("dns_2", CONF_FIELD(dns_2), "::"),
};
} // namespace network6

// "/etc/network/wireless.conf"
namespace wireless {
using Record = CCONF_WIRELESS_S;

constexpr ConfKey kKeys[] = {
    conf_flag("enable", CONF_FIELD(enable), "0"),
    conf_text("ssid", CONF_FIELD(ssid), ""),
    conf_choice("mode", CONF_FIELD(mode), "managed adhoc", "managed"),
    conf_number("channel", CONF_FIELD(channel), {0, 14}, "0"),
    conf_choice("security", CONF_FIELD(security), "open wep wpa wpa2", "wpa2"),
    conf_text("passphrase", CONF_FIELD(passphrase), ""),
    conf_number("wep_index", CONF_FIELD(wep_index), {1, 4}, "1"),
    conf_text("wep_key", CONF_FIELD(wep_key), ""),
};
} // namespace wireless

// "/etc/network/pppoe.conf"
namespace pppoe {
using Record = CCONF_PPPOE_S;

constexpr ConfKey kKeys[] = {
    conf_flag("pppoe_enable", CONF_FIELD(pppoe_enable), "0"),
    conf_text("user", CONF_FIELD(user), ""),
    conf_text("password", CONF_FIELD(password), ""),
    conf_text("interface", CONF_FIELD(interface), "eth0"),
    conf_number("mtu", CONF_FIELD(mtu), {576, 1492}, "1492"),
    conf_number("redial_time", CONF_FIELD(redial_time), {1, 3600}, "30"),
    conf_flag("peer_dns", CONF_FIELD(peer_dns), "1"),
    conf_flag("default_route", CONF_FIELD(default_route), "1"),
};
} // namespace pppoe

// "/etc/network/ddns.conf"
namespace ddns {
using Record = CCONF_DDNS_S;

constexpr ConfKey kKeys[] = {
    conf_flag("ddns_enable", CONF_FIELD(ddns_enable), "0"),
    conf_text("server", CONF_FIELD(server), ""),
    conf_number("port", CONF_FIELD(port), {1, 65535}, "80"),
    conf_text("host", CONF_FIELD(host), ""),
    conf_text("user", CONF_FIELD(user), ""),
    conf_text("password", CONF_FIELD(password), ""),
    conf_number("interval", CONF_FIELD(interval), {1, 1440}, "30"),
};
} // namespace ddns

} // namespace

constexpr ConfReader zep::kConfNetwork = conf_reader<network::Record>("network_info", network::kKeys);

int32_t CCONF_ReadNetwork(const char* path, CCONF_NETWORK_S* record)
{
    return conf_scan(kConfNetwork, path, record);
}

void CCONF_DefaultNetwork(CCONF_NETWORK_S* record) { conf_default(kConfNetwork, record); }

constexpr ConfReader zep::kConfNetwork6 = conf_reader<network6::Record>("network6_info", network6::kKeys);

int32_t CCONF_ReadNetwork6(const char* path, CCONF_NETWORK6_S* record)
{
    return conf_scan(kConfNetwork6, path, record);
}

void CCONF_DefaultNetwork6(CCONF_NETWORK6_S* record) { conf_default(kConfNetwork6, record); }

constexpr ConfReader zep::kConfWireless = conf_reader<wireless::Record>("wireless_info", wireless::kKeys);

int32_t CCONF_ReadWireless(const char* path, CCONF_WIRELESS_S* record)
{
    return conf_scan(kConfWireless, path, record);
}

void CCONF_DefaultWireless(CCONF_WIRELESS_S* record) { conf_default(kConfWireless, record); }

constexpr ConfReader zep::kConfPppoe = conf_reader<pppoe::Record>("pppoe_info", pppoe::kKeys);

int32_t CCONF_ReadPppoe(const char* path, CCONF_PPPOE_S* record)
{
    return conf_scan(kConfPppoe, path, record);
}

void CCONF_DefaultPppoe(CCONF_PPPOE_S* record) { conf_default(kConfPppoe, record); }

constexpr ConfReader zep::kConfDdns = conf_reader<ddns::Record>("ddns_info", ddns::kKeys);

int32_t CCONF_ReadDdns(const char* path, CCONF_DDNS_S* record) { return conf_scan(kConfDdns, path, record); }

void CCONF_DefaultDdns(CCONF_DDNS_S* record) { conf_default(kConfDdns, record); }
