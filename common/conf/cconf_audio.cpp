// Reader of "/etc/audio.conf".
#include "common/cconf_video.h"
#include "common/conf/conf_readers.hpp"
#include "common/conf/conf_table.hpp"

namespace {

using namespace zep;
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

} // namespace

constexpr ConfReader zep::kConfAudio = conf_reader<Record>("audio_info", kKeys);

int32_t CCONF_ReadAudio(const char* path, CCONF_AUDIO_S* record)
{
    return conf_scan(kConfAudio, path, record);
}

void CCONF_DefaultAudio(CCONF_AUDIO_S* record) { conf_default(kConfAudio, record); }
