// Readers of the configuration files of the servers.
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;

// "/etc/stream.conf"
namespace stream {
using Record = CCONF_STREAM_S;

constexpr ConfKey kKeys[] = {
    conf_number("stream_1_port", CONF_FIELD(stream[0].port), {1, 65535}, "1852"),
    conf_flag("stream_1_enable", CONF_FIELD(stream[0].enable), "1"),
    conf_choice("stream_1_codec", CONF_FIELD(stream[0].codec), "h264 mpeg4 mjpeg", "h264"),
    conf_number("stream_1_width", CONF_FIELD(stream[0].width), {160, 1920}, "1280"),
    conf_number("stream_1_height", CONF_FIELD(stream[0].height), {112, 1088}, "720"),
    conf_number("stream_1_fps", CONF_FIELD(stream[0].fps), {1, 60}, "30"),
    conf_choice("stream_1_rate", CONF_FIELD(stream[0].rate), "constant variable", "constant"),
    conf_number("stream_1_kbps", CONF_FIELD(stream[0].kbps), {32, 16384}, "4096"),
    conf_number("stream_1_gop", CONF_FIELD(stream[0].gop), {1, 300}, "30"),
    conf_number("stream_2_port", CONF_FIELD(stream[1].port), {1, 65535}, "1853"),
    conf_flag("stream_2_enable", CONF_FIELD(stream[1].enable), "0"),
    conf_choice("stream_2_codec", CONF_FIELD(stream[1].codec), "h264 mpeg4 mjpeg", "h264"),
    conf_number("stream_2_width", CONF_FIELD(stream[1].width), {160, 1920}, "640"),
    conf_number("stream_2_height", CONF_FIELD(stream[1].height), {112, 1088}, "480"),
    conf_number("stream_2_fps", CONF_FIELD(stream[1].fps), {1, 60}, "15"),
    conf_choice("stream_2_rate", CONF_FIELD(stream[1].rate), "constant variable", "constant"),
    conf_number("stream_2_kbps", CONF_FIELD(stream[1].kbps), {32, 16384}, "1024"),
    conf_number("stream_2_gop", CONF_FIELD(stream[1].gop), {1, 300}, "30"),
    conf_number("stream_3_port", CONF_FIELD(stream[2].port), {1, 65535}, "1854"),
    conf_flag("stream_3_enable", CONF_FIELD(stream[2].enable), "0"),
    conf_choice("stream_3_codec", CONF_FIELD(stream[2].codec), "h264 mpeg4 mjpeg", "h264"),
    conf_number("stream_3_width", CONF_FIELD(stream[2].width), {160, 1920}, "320"),
    conf_number("stream_3_height", CONF_FIELD(stream[2].height), {112, 1088}, "240"),
    conf_number("stream_3_fps", CONF_FIELD(stream[2].fps), {1, 60}, "15"),
    conf_choice("stream_3_rate", CONF_FIELD(stream[2].rate), "constant variable", "constant"),
    conf_number("stream_3_kbps", CONF_FIELD(stream[2].kbps), {32, 16384}, "256"),
    conf_number("stream_3_gop", CONF_FIELD(stream[2].gop), {1, 300}, "30"),
    conf_number("rtsp_port", CONF_FIELD(rtsp_port), {1, 65535}, "554"),
    conf_flag("multicast_enable", CONF_FIELD(multicast_enable), "0"),
    conf_ipv4("multicast_address", CONF_FIELD(multicast_address), "239.0.0.1"),
    conf_number("multicast_port", CONF_FIELD(multicast_port), {1, 65535}, "5000"),
};
} // namespace stream

// "/etc/web.conf"
namespace web {
using Record = CCONF_WEB_S;

constexpr ConfKey kKeys[] = {
    conf_number("port", CONF_FIELD(port), {1, 65535}, "80"),
    conf_flag("https_enable", CONF_FIELD(https_enable), "0"),
    conf_number("https_port", CONF_FIELD(https_port), {1, 65535}, "443"),
    conf_choice("authentication", CONF_FIELD(authentication), "none basic digest", "digest"),
    conf_number("timeout", CONF_FIELD(timeout), {10, 86400}, "300"),
    conf_number("max_client", CONF_FIELD(max_client), {1, 32}, "10"),
};
} // namespace web

// "/etc/middle.conf"
namespace middle {
using Record = CCONF_MIDDLE_S;

constexpr ConfKey kKeys[] = {
    conf_flag("middle_enable", CONF_FIELD(middle_enable), "0"),
    conf_text("server", CONF_FIELD(server), ""),
    conf_number("port", CONF_FIELD(port), {1, 65535}, "1860"),
    conf_text("device_id", CONF_FIELD(device_id), ""),
    conf_text("user", CONF_FIELD(user), ""),
    conf_text("password", CONF_FIELD(password), ""),
    conf_number("keepalive_time", CONF_FIELD(keepalive_time), {5, 600}, "30"),
    conf_number("retry_time", CONF_FIELD(retry_time), {1, 3600}, "10"),
};
} // namespace middle

// "/etc/tcp_server.conf"
namespace tcp_server {
using Record = CCONF_TCP_SERVER_S;

constexpr ConfKey kKeys[] = {
    conf_number("server_port", CONF_FIELD(server_port), {1, 65535}, "1852"),
    conf_number("max_client", CONF_FIELD(max_client), {1, 64}, "16"),
    conf_number("timeout", CONF_FIELD(timeout), {1, 3600}, "60"),
};
} // namespace tcp_server

} // namespace

constexpr ConfReader zep::kConfStream = conf_reader<stream::Record>("stream_info", stream::kKeys);

int32_t CCONF_ReadStream(const char* path, CCONF_STREAM_S* record)
{
    return conf_scan(kConfStream, path, record);
}

void CCONF_DefaultStream(CCONF_STREAM_S* record) { conf_default(kConfStream, record); }

constexpr ConfReader zep::kConfWeb = conf_reader<web::Record>("web_info", web::kKeys);

int32_t CCONF_ReadWeb(const char* path, CCONF_WEB_S* record) { return conf_scan(kConfWeb, path, record); }

void CCONF_DefaultWeb(CCONF_WEB_S* record) { conf_default(kConfWeb, record); }

constexpr ConfReader zep::kConfMiddle = conf_reader<middle::Record>("middle_info", middle::kKeys);

int32_t CCONF_ReadMiddle(const char* path, CCONF_MIDDLE_S* record)
{
    return conf_scan(kConfMiddle, path, record);
}

void CCONF_DefaultMiddle(CCONF_MIDDLE_S* record) { conf_default(kConfMiddle, record); }

constexpr ConfReader zep::kConfTcpServer =
    conf_reader<tcp_server::Record>("tcp_server_info", tcp_server::kKeys);

int32_t CCONF_ReadTcpServer(const char* path, CCONF_TCP_SERVER_S* record)
{
    return conf_scan(kConfTcpServer, path, record);
}

void CCONF_DefaultTcpServer(CCONF_TCP_SERVER_S* record) { conf_default(kConfTcpServer, record); }
