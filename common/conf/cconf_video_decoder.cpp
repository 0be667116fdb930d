// Reader of "/etc/videodecoder.conf".
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
using Record = CCONF_VIDEO_DECODER_S;

constexpr ConfKey kKeys[] = {
    conf_number("video_type", CONF_FIELD(video_type), {0, 1}, "0"),
    conf_number("brightness", CONF_FIELD(brightness), {0, 255}, "128"),
    conf_number("contrast", CONF_FIELD(contrast), {0, 255}, "128"),
    conf_number("saturation", CONF_FIELD(saturation), {0, 255}, "128"),
    conf_number("hue", CONF_FIELD(hue), {-128, 127}, "0"),
};

} // namespace

constexpr ConfReader zep::kConfVideoDecoder = conf_reader<Record>("videodecoder_info", kKeys);

int32_t CCONF_ReadVideoDecoder(const char* path, CCONF_VIDEO_DECODER_S* record)
{
    return conf_scan(kConfVideoDecoder, path, record);
}

void CCONF_DefaultVideoDecoder(CCONF_VIDEO_DECODER_S* record) { conf_default(kConfVideoDecoder, record); }
