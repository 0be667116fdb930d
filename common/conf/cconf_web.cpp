// Reader of "/etc/web.conf".
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_WEB_S;

constexpr ConfKey kKeys[] = {
    conf_number("port", CONF_FIELD(port), {1, 65535}, "80"),
    conf_flag("https_enable", CONF_FIELD(https_enable), "0"),
    conf_number("https_port", CONF_FIELD(https_port), {1, 65535}, "443"),
    conf_choice("authentication", CONF_FIELD(authentication), "none basic digest", "digest"),
    conf_number("timeout", CONF_FIELD(timeout), {10, 86400}, "300"),
    conf_number("max_client", CONF_FIELD(max_client), {1, 32}, "10"),
};

} // namespace

constexpr ConfReader zep::kConfWeb = conf_reader<Record>("web_info", kKeys);

int32_t CCONF_ReadWeb(const char* path, CCONF_WEB_S* record) { return conf_scan(kConfWeb, path, record); }

void CCONF_DefaultWeb(CCONF_WEB_S* record) { conf_default(kConfWeb, record); }
