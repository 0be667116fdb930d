// Reader of "/etc/timezone.conf".
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_TIME_ZONE_S;

constexpr ConfKey kKeys[] = {
    conf_number("timezone", CONF_FIELD(timezone), {0, 55}, "18"),
    conf_flag("dst_enable", CONF_FIELD(dst_enable), "0"),
    conf_flag("ntp_enable", CONF_FIELD(ntp_enable), "0"),
    conf_text("ntp_server", CONF_FIELD(ntp_server), "pool.ntp.org"),
    conf_number("ntp_interval", CONF_FIELD(ntp_interval), {1, 168}, "24"),
};

} // namespace

constexpr ConfReader zep::kConfTimeZone = conf_reader<Record>("timezone_info", kKeys);

int32_t CCONF_ReadTimeZone(const char* path, CCONF_TIME_ZONE_S* record)
{
    return conf_scan(kConfTimeZone, path, record);
}

void CCONF_DefaultTimeZone(CCONF_TIME_ZONE_S* record) { conf_default(kConfTimeZone, record); }
