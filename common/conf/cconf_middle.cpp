// Reader of "/etc/middle.conf".
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_MIDDLE_S;

constexpr ConfKey kKeys[] = {
    conf_flag("middle_enable", CONF_FIELD(middle_enable), "0"),
    conf_text("server", CONF_FIELD(server), ""),
    conf_number("port", CONF_FIELD(port), {1, 65535}, "1860"),
    conf_text("device_id", CONF_FIELD(device_id), ""),
    conf_text("user", CONF_FIELD(user), ""),
    conf_text("password", CONF_FIELD(password), ""),
    conf_number("keepalive_time", CONF_FIELD(keepalive_time), {5, 600}, "30"),
    conf_number("retry_time", CONF_FIELD(retry_time), {1, 3600}, "10"),
};

} // namespace

constexpr ConfReader zep::kConfMiddle = conf_reader<Record>("middle_info", kKeys);

int32_t CCONF_ReadMiddle(const char* path, CCONF_MIDDLE_S* record)
{
    return conf_scan(kConfMiddle, path, record);
}

void CCONF_DefaultMiddle(CCONF_MIDDLE_S* record) { conf_default(kConfMiddle, record); }
