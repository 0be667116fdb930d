// Reader of "/etc/tcp_server.conf".
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_TCP_SERVER_S;

constexpr ConfKey kKeys[] = {
    conf_number("server_port", CONF_FIELD(server_port), {1, 65535}, "1852"),
    conf_number("max_client", CONF_FIELD(max_client), {1, 64}, "16"),
    conf_number("timeout", CONF_FIELD(timeout), {1, 3600}, "60"),
};

} // namespace

constexpr ConfReader zep::kConfTcpServer = conf_reader<Record>("tcp_server_info", kKeys);

int32_t CCONF_ReadTcpServer(const char* path, CCONF_TCP_SERVER_S* record)
{
    return conf_scan(kConfTcpServer, path, record);
}

void CCONF_DefaultTcpServer(CCONF_TCP_SERVER_S* record) { conf_default(kConfTcpServer, record); }
