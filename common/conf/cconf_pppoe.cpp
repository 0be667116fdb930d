// Reader of "/etc/network/pppoe.conf".
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfPppoe = conf_reader<Record>("pppoe_info", kKeys);

int32_t CCONF_ReadPppoe(const char* path, CCONF_PPPOE_S* record)
{
    return conf_scan(kConfPppoe, path, record);
}

void CCONF_DefaultPppoe(CCONF_PPPOE_S* record) { conf_default(kConfPppoe, record); }
