// Reader of "/etc/system.conf".
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_SYSTEM_S;

constexpr ConfKey kKeys[] = {
    conf_text("device_name", CONF_FIELD(device_name), "camera"),
    conf_text("location", CONF_FIELD(location), ""),
    conf_text("language", CONF_FIELD(language), "en"),
    conf_number("uptime_reboot", CONF_FIELD(uptime_reboot), {0, 365}, "0"),
    conf_number("reboot_hour", CONF_FIELD(reboot_hour), {0, 23}, "3"),
    conf_flag("watchdog_enable", CONF_FIELD(watchdog_enable), "1"),
    conf_text("log_server", CONF_FIELD(log_server), ""),
    conf_number("log_port", CONF_FIELD(log_port), {1, 65535}, "514"),
};

} // namespace

constexpr ConfReader zep::kConfSystem = conf_reader<Record>("system_info", kKeys);

int32_t CCONF_ReadSystem(const char* path, CCONF_SYSTEM_S* record)
{
    return conf_scan(kConfSystem, path, record);
}

void CCONF_DefaultSystem(CCONF_SYSTEM_S* record) { conf_default(kConfSystem, record); }
