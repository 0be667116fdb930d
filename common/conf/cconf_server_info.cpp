// Reader of "/etc/serverinfo.conf".
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_SERVER_INFO_S;

constexpr ConfKey kKeys[] = {
    conf_text("manufacturer", CONF_FIELD(manufacturer), ""),
    conf_text("model_name", CONF_FIELD(model_name), ""),
    conf_text("serial_no", CONF_FIELD(serial_no), ""),
    conf_text("hardware_version", CONF_FIELD(hardware_version), ""),
    conf_mac("mac_address", CONF_FIELD(mac_address), "00:00:00:00:00:00"),
};

} // namespace

constexpr ConfReader zep::kConfServerInfo = conf_reader<Record>("serverinfo_info", kKeys);

int32_t CCONF_ReadServerInfo(const char* path, CCONF_SERVER_INFO_S* record)
{
    return conf_scan(kConfServerInfo, path, record);
}

void CCONF_DefaultServerInfo(CCONF_SERVER_INFO_S* record) { conf_default(kConfServerInfo, record); }
