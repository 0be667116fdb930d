// Reader of "/etc/network/network6.conf".
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfNetwork6 = conf_reader<Record>("network6_info", kKeys);

int32_t CCONF_ReadNetwork6(const char* path, CCONF_NETWORK6_S* record)
{
    return conf_scan(kConfNetwork6, path, record);
}

void CCONF_DefaultNetwork6(CCONF_NETWORK6_S* record) { conf_default(kConfNetwork6, record); }
