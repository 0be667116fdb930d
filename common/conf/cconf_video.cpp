// Readers of the configuration files of pictures and sound.
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;

// "/etc/osd.conf"
namespace osd {
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
} // namespace osd

// "/etc/motion.conf"
namespace motion {
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
} // namespace motion

// "/etc/audio.conf"
namespace audio {
using Record = CCONF_AUDIO_S;

constexpr ConfKey kKeys[] = {
    conf_flag("audio_enable", CONF_FIELD(audio_enable), "1"),
    conf_choice("codec", CONF_FIELD(codec), "alaw ulaw g726 adpcm pcm", "ulaw"),
    conf_choice("sample_rate", CONF_FIELD(sample_rate), "8000 16000 48000", "8000"),
    conf_choice("source", CONF_FIELD(source), "microphone line", "microphone"),
    conf_number("input_gain", CONF_FIELD(input_gain), {0, 31}, "16"),
    conf_number("output_volume", CONF_FIELD(output_volume), {0, 31}, "16"),
    conf_choice("talk", CONF_FIELD(talk), "half full", "half"),
    conf_flag("echo_cancel", CONF_FIELD(echo_cancel), "1"),
    conf_flag("noise_reduction", CONF_FIELD(noise_reduction), "1"),
};
} // namespace audio

// "/etc/videodecoder.conf"
namespace video_decoder {
using Record = CCONF_VIDEO_DECODER_S;

constexpr ConfKey kKeys[] = {
    conf_number("video_type", CONF_FIELD(video_type), {0, 1}, "0"),
    conf_number("brightness", CONF_FIELD(brightness), {0, 255}, "128"),
    conf_number("contrast", CONF_FIELD(contrast), {0, 255}, "128"),
    conf_number("saturation", CONF_FIELD(saturation), {0, 255}, "128"),
    conf_number("hue", CONF_FIELD(hue), {-128, 127}, "0"),
};
} // namespace video_decoder

} // namespace

constexpr ConfReader zep::kConfOsd = conf_reader<osd::Record>("osd_info", osd::kKeys);

int32_t CCONF_ReadOsd(const char* path, CCONF_OSD_S* record) { return conf_scan(kConfOsd, path, record); }

void CCONF_DefaultOsd(CCONF_OSD_S* record) { conf_default(kConfOsd, record); }

constexpr ConfReader zep::kConfMotion = conf_reader<motion::Record>("motion_info", motion::kKeys);

int32_t CCONF_ReadMotion(const char* path, CCONF_MOTION_S* record)
{
    return conf_scan(kConfMotion, path, record);
}

void CCONF_DefaultMotion(CCONF_MOTION_S* record) { conf_default(kConfMotion, record); }

constexpr ConfReader zep::kConfAudio = conf_reader<audio::Record>("audio_info", audio::kKeys);

int32_t CCONF_ReadAudio(const char* path, CCONF_AUDIO_S* record)
{
    return conf_scan(kConfAudio, path, record);
}

void CCONF_DefaultAudio(CCONF_AUDIO_S* record) { conf_default(kConfAudio, record); }

constexpr ConfReader zep::kConfVideoDecoder =
    conf_reader<video_decoder::Record>("videodecoder_info", video_decoder::kKeys);

int32_t CCONF_ReadVideoDecoder(const char* path, CCONF_VIDEO_DECODER_S* record)
{
    return conf_scan(kConfVideoDecoder, path, record);
}

void CCONF_DefaultVideoDecoder(CCONF_VIDEO_DECODER_S* record) { conf_default(kConfVideoDecoder, record); }
