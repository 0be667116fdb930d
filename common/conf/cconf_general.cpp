// Reader of "/etc/general.conf".
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_GENERAL_S;

constexpr ConfKey kKeys[] = {
    conf_text("cam_alias_2", CONF_FIELD(cam_alias_2), "camera 2"),
    conf_text("cam_alias_3", CONF_FIELD(cam_alias_3), "camera 3"),
    conf_text("cam_alias_4", CONF_FIELD(cam_alias_4), "camera 4"),
    conf_text("cam_alias", CONF_FIELD(cam_alias), "camera 1"),
    conf_choice("power_frequency", CONF_FIELD(power_frequency), "50 60", "50"),
    conf_flag("led_enable", CONF_FIELD(led_enable), "1"),
    conf_flag("buzzer_enable", CONF_FIELD(buzzer_enable), "0"),
};

} // namespace

constexpr ConfReader zep::kConfGeneral = conf_reader<Record>("general_info", kKeys);

int32_t CCONF_ReadGeneral(const char* path, CCONF_GENERAL_S* record)
{
    return conf_scan(kConfGeneral, path, record);
}

void CCONF_DefaultGeneral(CCONF_GENERAL_S* record) { conf_default(kConfGeneral, record); }
