// Reader of "/etc/osd.conf".
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_OSD_S;

constexpr ConfKey kKeys[] = {
    conf_flag("osd_enable", CONF_FIELD(osd_enable), "1"),
    conf_flag("show_name", CONF_FIELD(show_name), "1"),
    conf_flag("show_date", CONF_FIELD(show_date), "1"),
    conf_flag("show_time", CONF_FIELD(show_time), "1"),
    conf_choice("date_format", CONF_FIELD(date_format), "ymd dmy mdy", "ymd"),
    conf_choice("position", CONF_FIELD(position), "top_left top_right bottom_left bottom_right", "top_left"),
    conf_choice("size", CONF_FIELD(size), "small medium large", "medium"),
    conf_number("transparency", CONF_FIELD(transparency), {0, 100}, "0"),
    conf_text("text_2", CONF_FIELD(text_2), ""),
    conf_text("text", CONF_FIELD(text), ""),
};

} // namespace

constexpr ConfReader zep::kConfOsd = conf_reader<Record>("osd_info", kKeys);

int32_t CCONF_ReadOsd(const char* path, CCONF_OSD_S* record) { return conf_scan(kConfOsd, path, record); }

void CCONF_DefaultOsd(CCONF_OSD_S* record) { conf_default(kConfOsd, record); }
