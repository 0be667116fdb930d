// Reader of "/etc/network/wireless.conf".
#include "common/cconf_network.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfWireless = conf_reader<Record>("wireless_info", kKeys);

int32_t CCONF_ReadWireless(const char* path, CCONF_WIRELESS_S* record)
{
    return conf_scan(kConfWireless, path, record);
}

void CCONF_DefaultWireless(CCONF_WIRELESS_S* record) { conf_default(kConfWireless, record); }
