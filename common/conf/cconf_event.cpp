// Reader of "/etc/event.conf".
#include "common/cconf_event.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_EVENT_S;

constexpr ConfKey kKeys[] = {
    conf_flag("input_1_enable", CONF_FIELD(input[0].enable), "0"),
    conf_choice("input_1_contact", CONF_FIELD(input[0].contact), "open closed", "open"),
    conf_flag("input_2_enable", CONF_FIELD(input[1].enable), "0"),
    conf_choice("input_2_contact", CONF_FIELD(input[1].contact), "open closed", "open"),
    conf_flag("motion_event", CONF_FIELD(motion_event), "0"),
    conf_flag("video_loss_event", CONF_FIELD(video_loss_event), "0"),
    conf_flag("network_loss_event", CONF_FIELD(network_loss_event), "0"),
    conf_number("interval", CONF_FIELD(interval), {0, 3600}, "10"),
    conf_number("begin_time", CONF_FIELD(begin_time), {0, 1439}, "0"),
    conf_number("end_time", CONF_FIELD(end_time), {0, 1440}, "1440"),
};

} // namespace

constexpr ConfReader zep::kConfEvent = conf_reader<Record>("event_info", kKeys);

int32_t CCONF_ReadEvent(const char* path, CCONF_EVENT_S* record)
{
    return conf_scan(kConfEvent, path, record);
}

void CCONF_DefaultEvent(CCONF_EVENT_S* record) { conf_default(kConfEvent, record); }
