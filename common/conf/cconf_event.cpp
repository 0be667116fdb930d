// Readers of the configuration files of events and what they cause.
#include "common/cconf_event.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;

// "/etc/event.conf"
namespace event {
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
} // namespace event

// "/etc/eventcontrol.conf"
namespace event_control {
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
} // namespace event_control

// "/etc/control.conf"
namespace control {
using Record = CCONF_CONTROL_S;

constexpr ConfKey kKeys[] = {
    conf_number("protocol", CONF_FIELD(protocol), {0, 15}, "0"),
    conf_choice("line", CONF_FIELD(line), "rs485 rs232", "rs485"),
    conf_number("address", CONF_FIELD(address), {0, 255}, "1"),
    conf_number("baud_rate", CONF_FIELD(baud_rate), {1200, 115200}, "9600"),
    conf_number("data_bits", CONF_FIELD(data_bits), {7, 8}, "8"),
    conf_choice("parity", CONF_FIELD(parity), "none even odd", "none"),
    conf_number("stop_bits", CONF_FIELD(stop_bits), {1, 2}, "1"),
    conf_number("pan_speed", CONF_FIELD(pan_speed), {1, 63}, "32"),
    conf_number("tilt_speed", CONF_FIELD(tilt_speed), {1, 63}, "32"),
    conf_number("zoom_speed", CONF_FIELD(zoom_speed), {1, 7}, "4"),
};
} // namespace control

} // namespace

constexpr ConfReader zep::kConfEvent = conf_reader<event::Record>("event_info", event::kKeys);

int32_t CCONF_ReadEvent(const char* path, CCONF_EVENT_S* record)
{
    return conf_scan(kConfEvent, path, record);
}

void CCONF_DefaultEvent(CCONF_EVENT_S* record) { conf_default(kConfEvent, record); }

constexpr ConfReader zep::kConfEventControl =
    conf_reader<event_control::Record>("eventcontrol_info", event_control::kKeys);

int32_t CCONF_ReadEventControl(const char* path, CCONF_EVENT_CONTROL_S* record)
{
    return conf_scan(kConfEventControl, path, record);
}

void CCONF_DefaultEventControl(CCONF_EVENT_CONTROL_S* record) { conf_default(kConfEventControl, record); }

constexpr ConfReader zep::kConfControl = conf_reader<control::Record>("control_info", control::kKeys);

int32_t CCONF_ReadControl(const char* path, CCONF_CONTROL_S* record)
{
    return conf_scan(kConfControl, path, record);
}

void CCONF_DefaultControl(CCONF_CONTROL_S* record) { conf_default(kConfControl, record); }
