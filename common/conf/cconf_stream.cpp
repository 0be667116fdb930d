// Reader of "/etc/stream.conf".
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfStream = conf_reader<Record>("stream_info", kKeys);

int32_t CCONF_ReadStream(const char* path, CCONF_STREAM_S* record)
{
    return conf_scan(kConfStream, path, record);
}

void CCONF_DefaultStream(CCONF_STREAM_S* record) { conf_default(kConfStream, record); }
