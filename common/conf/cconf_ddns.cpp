// Reader of "/etc/network/ddns.conf".
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfDdns = conf_reader<Record>("ddns_info", kKeys);

int32_t CCONF_ReadDdns(const char* path, CCONF_DDNS_S* record) { return conf_scan(kConfDdns, path, record); }

void CCONF_DefaultDdns(CCONF_DDNS_S* record) { conf_default(kConfDdns, record); }
