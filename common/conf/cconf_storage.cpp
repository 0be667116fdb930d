// Reader of "/etc/storage.conf".
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_STORAGE_S;

constexpr ConfKey kKeys[] = {
    conf_flag("storage_enable", CONF_FIELD(storage_enable), "0"),
    conf_choice("medium", CONF_FIELD(medium), "sd usb share", "sd"),
    conf_flag("overwrite", CONF_FIELD(overwrite), "1"),
    conf_number("reserve", CONF_FIELD(reserve), {16, 65536}, "256"),
    conf_number("segment_time", CONF_FIELD(segment_time), {1, 60}, "10"),
    conf_number("keep_days", CONF_FIELD(keep_days), {0, 365}, "0"),
    conf_number("pre_time", CONF_FIELD(pre_time), {0, 30}, "5"),
    conf_number("post_time", CONF_FIELD(post_time), {1, 300}, "30"),
    conf_text("share_host", CONF_FIELD(share_host), ""),
    conf_text("share_path", CONF_FIELD(share_path), ""),
    conf_text("share_user", CONF_FIELD(share_user), ""),
    conf_text("share_password", CONF_FIELD(share_password), ""),
};

} // namespace

constexpr ConfReader zep::kConfStorage = conf_reader<Record>("storage_info", kKeys);

int32_t CCONF_ReadStorage(const char* path, CCONF_STORAGE_S* record)
{
    return conf_scan(kConfStorage, path, record);
}

void CCONF_DefaultStorage(CCONF_STORAGE_S* record) { conf_default(kConfStorage, record); }
