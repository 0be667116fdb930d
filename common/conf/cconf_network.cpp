// Reader of "/etc/network/network.conf".
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfNetwork = conf_reader<Record>("network_info", kKeys);

int32_t CCONF_ReadNetwork(const char* path, CCONF_NETWORK_S* record)
{
    return conf_scan(kConfNetwork, path, record);
}

void CCONF_DefaultNetwork(CCONF_NETWORK_S* record) { conf_default(kConfNetwork, record); }
