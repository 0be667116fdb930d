// Reader of "/etc/motion.conf".
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_MOTION_S;

constexpr ConfKey kKeys[] = {
    conf_flag("motion_enable", CONF_FIELD(motion_enable), "0"),
    conf_number("sensitivity", CONF_FIELD(sensitivity), {0, 100}, "50"),
    conf_number("threshold", CONF_FIELD(threshold), {1, 100}, "5"),
    conf_number("hold_time", CONF_FIELD(hold_time), {0, 60}, "5"),
    conf_number("area_1_left", CONF_FIELD(area[0].left), {0, 100}, "0"),
    conf_number("area_1_top", CONF_FIELD(area[0].top), {0, 100}, "0"),
    conf_number("area_1_width", CONF_FIELD(area[0].width), {0, 100}, "100"),
    conf_number("area_1_height", CONF_FIELD(area[0].height), {0, 100}, "100"),
    conf_number("area_2_left", CONF_FIELD(area[1].left), {0, 100}, "0"),
    conf_number("area_2_top", CONF_FIELD(area[1].top), {0, 100}, "0"),
    conf_number("area_2_width", CONF_FIELD(area[1].width), {0, 100}, "0"),
    conf_number("area_2_height", CONF_FIELD(area[1].height), {0, 100}, "0"),
    conf_number("area_3_left", CONF_FIELD(area[2].left), {0, 100}, "0"),
    conf_number("area_3_top", CONF_FIELD(area[2].top), {0, 100}, "0"),
    conf_number("area_3_width", CONF_FIELD(area[2].width), {0, 100}, "0"),
    conf_number("area_3_height", CONF_FIELD(area[2].height), {0, 100}, "0"),
    conf_number("area_4_left", CONF_FIELD(area[3].left), {0, 100}, "0"),
    conf_number("area_4_top", CONF_FIELD(area[3].top), {0, 100}, "0"),
    conf_number("area_4_width", CONF_FIELD(area[3].width), {0, 100}, "0"),
    conf_number("area_4_height", CONF_FIELD(area[3].height), {0, 100}, "0"),
};

} // namespace

constexpr ConfReader zep::kConfMotion = conf_reader<Record>("motion_info", kKeys);

int32_t CCONF_ReadMotion(const char* path, CCONF_MOTION_S* record)
{
    return conf_scan(kConfMotion, path, record);
}

void CCONF_DefaultMotion(CCONF_MOTION_S* record) { conf_default(kConfMotion, record); }
