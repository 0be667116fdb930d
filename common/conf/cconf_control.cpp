// Reader of "/etc/control.conf".
#include "common/cconf_event.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfControl = conf_reader<Record>("control_info", kKeys);

int32_t CCONF_ReadControl(const char* path, CCONF_CONTROL_S* record)
{
    return conf_scan(kConfControl, path, record);
}

void CCONF_DefaultControl(CCONF_CONTROL_S* record) { conf_default(kConfControl, record); }
