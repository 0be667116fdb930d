// Readers of the configuration files of the device, its time and its storage.
#include "common/cconf_device.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;

// "/etc/general.conf"
namespace general {
using Record = CCONF_GENERAL_S;

constexpr ConfKey kKeys[] = {
    conf_text("cam_alias_2", CONF_FIELD(cam_alias_2), "camera 2"),
    conf_text("cam_alias_3", CONF_FIELD(cam_alias_3), "camera 3"),
    conf_text("cam_alias_4", CONF_FIELD(cam_alias_4), "camera 4"),
    conf_text("cam_alias", CONF_FIELD(cam_alias), "camera 1"),
    conf_choice("power_frequency", CONF_FIELD(power_frequency), "50 60", "50"),
    conf_flag("led_enable", CONF_FIELD(led_enable), "1"),
    conf_flag("buzzer_enable", CONF_FIELD(buzzer_enable), "0"),
};
} // namespace general

// "/etc/system.conf"
namespace system {
using Record = CCONF_SYSTEM_S;

constexpr ConfKey kKeys[] = {
    conf_text("device_name", CONF_FIELD(device_name), "camera"),
    conf_text("location", CONF_FIELD(location), ""),
    conf_text("language", CONF_FIELD(language), "en"),
    conf_number("uptime_reboot", CONF_FIELD(uptime_reboot), {0, 365}, "0"),
    conf_number("reboot_hour", CONF_FIELD(reboot_hour), {0, 23}, "3"),
    conf_flag("watchdog_enable", CONF_FIELD(watchdog_enable), "1"),
    conf_text("log_server", CONF_FIELD(log_server), ""),
    conf_number("log_port", CONF_FIELD(log_port), {1, 65535}, "514"),
};
} // namespace system

// "/etc/serverinfo.conf"
namespace server_info {
using Record = CCONF_SERVER_INFO_S;

constexpr ConfKey kKeys[] = {
    conf_text("manufacturer", CONF_FIELD(manufacturer), ""),
    conf_text("model_name", CONF_FIELD(model_name), ""),
    conf_text("serial_no", CONF_FIELD(serial_no), ""),
    conf_text("hardware_version", CONF_FIELD(hardware_version), ""),
    conf_mac("mac_address", CONF_FIELD(mac_address), "00:00:00:00:00:00"),
};
} // namespace server_info

// "/etc/timezone.conf"
namespace time_zone {
using Record = CCONF_TIME_ZONE_S;

constexpr ConfKey kKeys[] = {
    conf_number("timezone", CONF_FIELD(timezone), {0, 55}, "18"),
    conf_flag("dst_enable", CONF_FIELD(dst_enable), "0"),
    conf_flag("ntp_enable", CONF_FIELD(ntp_enable), "0"),
    conf_text("ntp_server", CONF_FIELD(ntp_server), "pool.ntp.org"),
    conf_number("ntp_interval", CONF_FIELD(ntp_interval), {1, 168}, "24"),
};
} // namespace time_zone

// "/etc/storage.conf"
namespace storage {
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
} // namespace storage

} // namespace

constexpr ConfReader zep::kConfGeneral = conf_reader<general::Record>("general_info", general::kKeys);

int32_t CCONF_ReadGeneral(const char* path, CCONF_GENERAL_S* record)
{
    return conf_scan(kConfGeneral, path, record);
}

void CCONF_DefaultGeneral(CCONF_GENERAL_S* record) { conf_default(kConfGeneral, record); }

constexpr ConfReader zep::kConfSystem = conf_reader<system::Record>("system_info", system::kKeys);

int32_t CCONF_ReadSystem(const char* path, CCONF_SYSTEM_S* record)
{
    return conf_scan(kConfSystem, path, record);
}

void CCONF_DefaultSystem(CCONF_SYSTEM_S* record) { conf_default(kConfSystem, record); }

constexpr ConfReader zep::kConfServerInfo =
    conf_reader<server_info::Record>("serverinfo_info", server_info::kKeys);

int32_t CCONF_ReadServerInfo(const char* path, CCONF_SERVER_INFO_S* record)
{
    return conf_scan(kConfServerInfo, path, record);
}

void CCONF_DefaultServerInfo(CCONF_SERVER_INFO_S* record) { conf_default(kConfServerInfo, record); }

constexpr ConfReader zep::kConfTimeZone = conf_reader<time_zone::Record>("timezone_info", time_zone::kKeys);

int32_t CCONF_ReadTimeZone(const char* path, CCONF_TIME_ZONE_S* record)
{
    return conf_scan(kConfTimeZone, path, record);
}

void CCONF_DefaultTimeZone(CCONF_TIME_ZONE_S* record) { conf_default(kConfTimeZone, record); }

constexpr ConfReader zep::kConfStorage = conf_reader<storage::Record>("storage_info", storage::kKeys);

int32_t CCONF_ReadStorage(const char* path, CCONF_STORAGE_S* record)
{
    return conf_scan(kConfStorage, path, record);
}

void CCONF_DefaultStorage(CCONF_STORAGE_S* record) { conf_default(kConfStorage, record); }
