// Reader of "/etc/eventcontrol.conf".
#include "common/cconf_event.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_EVENT_CONTROL_S;

constexpr ConfKey kKeys[] = {
    conf_in("INPUT", conf_flag("enable", CONF_FIELD(input.enable), "0")),
    conf_in("INPUT", conf_flag("record", CONF_FIELD(input.record), "0")),
    conf_in("INPUT", conf_flag("output", CONF_FIELD(input.output), "0")),
    conf_in("INPUT", conf_number("hold_time", CONF_FIELD(input.hold_time), {1, 300}, "5")),
    conf_in("FTP", conf_flag("enable", CONF_FIELD(ftp.enable), "0")),
    conf_in("FTP", conf_text("server", CONF_FIELD(ftp.server), "")),
    conf_in("FTP", conf_number("port", CONF_FIELD(ftp.port), {1, 65535}, "21")),
    conf_in("FTP", conf_text("user", CONF_FIELD(ftp.user), "")),
    conf_in("FTP", conf_text("password", CONF_FIELD(ftp.password), "")),
    conf_in("FTP", conf_text("folder", CONF_FIELD(ftp.folder), "")),
    conf_in("FTP", conf_flag("passive", CONF_FIELD(ftp.passive), "1")),
    conf_in("FTP", conf_number("pictures", CONF_FIELD(ftp.pictures), {1, 30}, "1")),
    conf_in("EMAIL", conf_flag("enable", CONF_FIELD(email.enable), "0")),
    conf_in("EMAIL", conf_text("server", CONF_FIELD(email.server), "")),
    conf_in("EMAIL", conf_number("port", CONF_FIELD(email.port), {1, 65535}, "25")),
    conf_in("EMAIL", conf_choice("security", CONF_FIELD(email.security), "none starttls tls", "none")),
    conf_in("EMAIL", conf_text("user", CONF_FIELD(email.user), "")),
    conf_in("EMAIL", conf_text("password", CONF_FIELD(email.password), "")),
    conf_in("EMAIL", conf_text("sender", CONF_FIELD(email.sender), "")),
    conf_in("EMAIL", conf_text("receiver_2", CONF_FIELD(email.receiver_2), "")),
    conf_in("EMAIL", conf_text("receiver", CONF_FIELD(email.receiver), "")),
    conf_in("EMAIL", conf_text("subject", CONF_FIELD(email.subject), "Event")),
    conf_in("EMAIL", conf_flag("attach", CONF_FIELD(email.attach), "1")),
};

} // namespace

constexpr ConfReader zep::kConfEventControl = conf_reader<Record>("eventcontrol_info", kKeys);

int32_t CCONF_ReadEventControl(const char* path, CCONF_EVENT_CONTROL_S* record)
{
    return conf_scan(kConfEventControl, path, record);
}

void CCONF_DefaultEventControl(CCONF_EVENT_CONTROL_S* record) { conf_default(kConfEventControl, record); }
