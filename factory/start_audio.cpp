// The audio path of the loop-back test, from the codec chip to the bindings.
#include "factory/start_audio.h"

#include "common/base/fd.hpp"
#include "common/base/shell.hpp"
#include "factory/acodec_uapi.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_ao.h"
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_vb.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kName[] = "StartAudio"; // in the message of every step
constexpr int32_t kDevice = AUDIO_PATH_DEVICE, kChannel = AUDIO_PATH_CHANNEL;
// Lines that operators look for: the numbers are part of the text.
constexpr int kInputBindLine = 1047, kOutputBindLine = 1178;

struct Settings {
    int32_t payload_type = -1;
    int32_t mic_in = -1;
};
Settings settings; // of the thread that runs the applet

struct Volumes {
    int32_t mic, adc, dac;
};

// system() ignores SIGINT while it waits. A child calls it, so that the server still receives the signal.
void run_command(const char* line)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child < 0) return zep::run_shell(line);
    if (child == 0) {
        zep::run_shell(line);
        _exit(0);
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

AIO_ATTR_S device_attributes(int32_t mode, int32_t rate)
{
    AIO_ATTR_S attr = {};
    attr.enSamplerate = uint32_t(rate);
    attr.enBitwidth = AUDIO_BIT_WIDTH_16;
    attr.enWorkmode = 0;
    attr.enSoundmode = AUDIO_SOUND_MONO;
    attr.u32EXFlag = 1;
    attr.u32FrmNum = mode == 1 ? 40 : 30;
    attr.u32PtNumPerFrm = mode == 1 ? AUDIO_PATH_ENCODE_POINTS : AUDIO_PATH_DECODE_POINTS;
    attr.u32ChnCnt = AUDIO_PATH_INPUT_CHANNELS;
    attr.u32ClkSel = 1;
    return attr;
}

int32_t start_platform()
{
    HI_MPI_SYS_Exit();
    HI_MPI_VB_Exit();
    const VB_CONF_S pools = {};
    const MPP_SYS_CONF_S system = {16};
    const char* failed = nullptr; // with its mark: that of SYS_SetConf has none
    if (HI_MPI_VB_SetConf(&pools) != 0)
        failed = "HI_MPI_VB_SetConf failed!";
    else if (HI_MPI_VB_Init() != 0)
        failed = "HI_MPI_VB_Init failed!";
    else if (HI_MPI_SYS_SetConf(&system) != 0)
        failed = "HI_MPI_SYS_SetConf failed";
    else if (HI_MPI_SYS_Init() != 0)
        failed = "HI_MPI_SYS_Init failed!";
    if (!failed) return 0;
    printf("%s: %s\n", kName, failed);
    return -1;
}

// Rates share a clock in threes.
std::optional<uint8_t> rate_group(int32_t rate)
{
    constexpr int32_t kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    for (size_t i = 0; i < sizeof kRates / sizeof kRates[0]; ++i)
        if (kRates[i] == rate) return uint8_t(i / 3);
    return {};
}

// The chip behind its driver. One record goes through all requests: each changes only its own bits.
class Codec {
public:
    explicit Codec(int fd) : fd_(fd) {}

    bool set_rate(int32_t rate)
    {
        std::optional<uint8_t> group = rate_group(rate);
        if (!group) {
            printf("%s: not support stAioAttr.enSamplerate:%d\n", kName, rate);
            return false;
        }
        record_.u8Rate = uint8_t((record_.u8Rate & ~0x38) | 0xC0 | *group << 3);
        return request(ACODEC_SET_SAMPLE_RATE, "set acodec sample rate failed");
    }

    bool set_microphone(int32_t volume)
    {
        record_.u8Input = uint8_t((record_.u8Input & ~0x02) | 0x04);
        if (!request(ACODEC_SET_MIC_IN, "set acodec micin failed")) return false;
        record_.u8MicVolume = uint8_t((record_.u8MicVolume & ~0x1F) | (volume & 0x1F));
        constexpr char kFailed[] = "set acodec micin volume failed";
        if (!request(ACODEC_SET_MIC_VOL_1, kFailed) || !request(ACODEC_SET_MIC_VOL_2, kFailed)) return false;
        printf("MIC volume %d\n", volume);
        return true;
    }

    bool set_dac(int32_t volume)
    {
        put_volume(volume);
        if (!request(ACODEC_SET_DACL_VOL, "ACODEC_SET_DACL_VOL failed")) return false;
        if (!request(ACODEC_SET_DACR_VOL, "ACODEC_SET_DACR_VOL failed")) return false;
        printf("DA volume %d\n", volume);
        return true;
    }

    bool set_adc(int32_t volume)
    {
        put_volume(volume);
        if (!request(ACODEC_SET_ADCL_VOL, "ACODEC_SET_ADCL_VOL failed")) return false;
        if (!request(ACODEC_SET_ADCR_VOL, "ACODEC_SET_ADCR_VOL failed")) return false;
        printf("AD volume %d\n", volume);
        return true;
    }

private:
    void put_volume(int32_t volume)
    {
        record_.u8Volume = uint8_t((record_.u8Volume & 0x80) | (volume & 0x7F));
    }

    bool request(uint32_t number, const char* failure)
    {
        if (ioctl(fd_, static_cast<unsigned long>(number), &record_) >= 0) return true;
        printf("%s: %s\n", kName, failure);
        return false;
    }

    int fd_;
    ACODEC_CTRL_S record_ = {};
};

int32_t set_codec(int32_t rate, const Volumes& volumes)
{
    zep::Fd fd(open(ACODEC_DEVICE, O_RDWR | O_CLOEXEC));
    if (!fd) {
        printf("%s: can't open acodec,%s\n", kName, ACODEC_DEVICE);
        return -1;
    }
    Codec codec(fd.get());
    if (!codec.set_rate(rate)) return -1;
    if (settings.mic_in == 1 && !codec.set_microphone(volumes.mic)) return -1;
    return codec.set_dac(volumes.dac) && codec.set_adc(volumes.adc) ? 0 : -1;
}

int32_t start_input(const AIO_ATTR_S& attr)
{
    puts("step 2: start Ai");
    if (int32_t code = HI_MPI_AI_SetPubAttr(kDevice, &attr)) {
        printf("%s: HI_MPI_AI_SetPubAttr(%d) failed with %#x\n", kName, kDevice, unsigned(code));
        return -1;
    }
    if (int32_t code = HI_MPI_AI_Enable(kDevice)) {
        printf("%s: HI_MPI_AI_Enable(%d) failed with %#x\n", kName, kDevice, unsigned(code));
        return -1;
    }
    for (int32_t channel = 0; channel < int32_t(attr.u32ChnCnt); ++channel) {
        if (int32_t code = HI_MPI_AI_EnableChn(kDevice, channel)) {
            printf("%s: HI_MPI_AI_EnableChn(%d,%d) failed with %#x\n", kName, kDevice, channel,
                   unsigned(code));
            return -1;
        }
    }
    return 0;
}

bool known_payload()
{
    switch (settings.payload_type) {
#define BUILT_IN(TYPE, NUMBER, NAME) case TYPE:
        MPP_PAYLOAD_TYPES(BUILT_IN)
#undef BUILT_IN
        return true;
    default:
        printf("%s: invalid aenc payload type:%d\n", kName, settings.payload_type);
        return false;
    }
}

int32_t start_encoder()
{
    puts("step 3: start Aenc");
    if (!known_payload()) return -1;
    uint32_t codec_attribute = 0; // first form and lowest rate, for the codecs that have several
    const AENC_CHN_ATTR_S attr = {settings.payload_type, 30, &codec_attribute};
    int32_t code = HI_MPI_AENC_CreateChn(kChannel, &attr);
    if (code == 0) return 0;
    printf("%s: HI_MPI_AENC_CreateChn(%d) failed with %#x!\n", kName, kChannel, unsigned(code));
    return -1;
}

int32_t bind(MPP_CHN_S source, MPP_CHN_S destination, int line)
{
    int32_t code = HI_MPI_SYS_Bind(&source, &destination);
    if (code) printf("s32Ret=%#x,fuc:%s,line:%d\n", unsigned(code), kName, line);
    return code;
}

int32_t bind_input()
{
    puts("step 4: Aenc bind Ai Chn");
    int32_t code = bind({HI_ID_AI, kDevice, kChannel}, {HI_ID_AENC, 0, kChannel}, kInputBindLine);
    if (code == 0) printf("Ai(%d,%d) bind to AencChn:%d ok!\n", kDevice, kChannel, kChannel);
    return code;
}

int32_t start_decoder()
{
    puts("step 5: start Adec & Ao. ( if you want )");
    if (!known_payload()) return -1;
    uint32_t codec_attribute = 0;
    const ADEC_CHN_ATTR_S attr = {settings.payload_type, 5, ADEC_MODE_PACK, &codec_attribute};
    int32_t code = HI_MPI_ADEC_CreateChn(kChannel, &attr);
    if (code) printf("%s: HI_MPI_ADEC_CreateChn(%d) failed with %#x!\n", kName, kChannel, unsigned(code));
    return code;
}

int32_t start_output(const AIO_ATTR_S& attr)
{
    const auto refused = [](const char* operation, int32_t where, int32_t code) {
        printf("%s: HI_MPI_AO_%s(%d) failed with %#x!\n", kName, operation, where, unsigned(code));
        return -1;
    };
    if (int32_t code = HI_MPI_AO_SetPubAttr(kDevice, &attr)) return refused("SetPubAttr", kDevice, code);
    if (int32_t code = HI_MPI_AO_Enable(kDevice)) return refused("Enable", kDevice, code);
    if (int32_t code = HI_MPI_AO_EnableChn(kDevice, kChannel)) return refused("EnableChn", kChannel, code);
    return 0;
}

int32_t bind_output()
{
    if (bind({HI_ID_ADEC, 0, kChannel}, {HI_ID_AO, kDevice, kChannel}, kOutputBindLine)) return -1;
    printf("bind adec:%d to ao(%d,%d) ok \n", kChannel, kDevice, kChannel);
    return 0;
}

} // namespace

int32_t StartAudio(int32_t s32Mode, int32_t s32PayloadType, int32_t s32SampleRate, int32_t s32MicIn,
                   int32_t s32MicVolume, int32_t s32AdcVolume, int32_t s32DacVolume)
{
    settings = {s32PayloadType, s32MicIn};
    printf("============================> gs_bMicIn : %d\n", s32MicIn);
    run_command("rmmod /dvs/acodec.ko");
    run_command("insmod /dvs/acodec.ko");
    puts("========================== > reset");
    // No resampling and always a binding: the stations measure the bare path.
    const AIO_ATTR_S attr = device_attributes(s32Mode, s32SampleRate);
    if (start_platform() != 0) return -1;
    run_command("ls /dev"); // for the operator
    if (set_codec(s32SampleRate, {s32MicVolume, s32AdcVolume, s32DacVolume}) != 0) return -1;
    if (start_input(attr) != 0) return -1;
    if (start_encoder() != 0) return -1;
    if (int32_t code = bind_input()) return code;
    if (int32_t code = start_decoder()) return code;
    if (start_output(attr) != 0) return -1;
    return bind_output();
}

void StopAudio(void)
{
    MPP_CHN_S input = {HI_ID_AI, kDevice, kChannel}, encoder = {HI_ID_AENC, 0, kChannel};
    MPP_CHN_S decoder = {HI_ID_ADEC, 0, kChannel}, output = {HI_ID_AO, kDevice, kChannel};
    HI_MPI_SYS_UnBind(&decoder, &output);
    HI_MPI_AO_DisableChn(kDevice, kChannel);
    HI_MPI_AO_Disable(kDevice);
    HI_MPI_ADEC_DestroyChn(kChannel);
    HI_MPI_SYS_UnBind(&input, &encoder);
    HI_MPI_AENC_DestroyChn(kChannel);
    for (int32_t channel = 0; channel < AUDIO_PATH_INPUT_CHANNELS; ++channel)
        HI_MPI_AI_DisableChn(kDevice, channel);
    HI_MPI_AI_Disable(kDevice);
    HI_MPI_SYS_Exit();
    HI_MPI_VB_Exit();
}

void CutAudioOutput(void) { HI_MPI_AO_DisableChn(kDevice, kChannel); }

int32_t GetAudioPayloadType(void) { return settings.payload_type; }
int32_t GetAudioMicIn(void) { return settings.mic_in; }
