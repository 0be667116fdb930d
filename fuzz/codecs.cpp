// The codecs' decoders, through the descriptors that a channel uses.
#include "fuzz/fuzz.hpp"

#include "mpi/audio/audio_voice_adp.h"
#include "mpi/src/mpi_codec_registry.h"

#include <cstdlib>

namespace {

constexpr struct {
    int32_t type;
    uint32_t attribute;
} kStreams[] = {{23, 0},
                {19, 0},
                {20, 0},
                {49, ADPCM_DVI4},
                {49, ADPCM_IMA_BLOCK},
                {49, ADPCM_DVI4 | 160u << 16},
                {49, ADPCM_IMA_BLOCK | 161u << 16},
                {21, G726_16K},
                {21, G726_24K},
                {21, G726_32K},
                {21, G726_40K},
                {21, G726_16K_AAL2},
                {21, G726_24K_AAL2},
                {21, G726_40K_AAL2},
                {21, 99},
                {49, 7}};

// Every byte is used once, what comes out fits its room, and a decoder that stops says how much is left.
void try_decoders(std::string_view bytes)
{
    [[maybe_unused]] static const int32_t registered = MPI_ADEC_RegisterBuiltIn();
    static const auto samples =
        std::make_unique<uint16_t[]>(2 * AUDIO_MAX_POINTS); // exactly as large as documented
    Input input(bytes);
    const auto& stream = kStreams[input.byte() % std::size(kStreams)];
    const size_t step = size_t(1) + input.byte();
    ADEC_DECODER_S codec;
    must(MPI_ADEC_FindDecoder(stream.type, &codec) == 0);
    uint32_t attribute = stream.attribute;
    void* handle = nullptr;
    if (codec.pfnOpenDecoder(&attribute, &handle) != 0) return;
    ADEC_FRAME_INFO_S info = {};
    must(codec.pfnGetFrmInfo(handle, &info) == 0);
    while (!input.rest().empty()) {
        auto piece = exactly(input.take(step));
        uint8_t* position = piece.data();
        auto left = int32_t(piece.size());
        uint32_t length = 0, channels = 0;
        const int32_t result =
            codec.pfnDecodeFrm(handle, &position, &left, samples.get(), &length, &channels);
        must(left >= 0 && position + left == piece.data() + piece.size());
        must(result != 0 || (length <= 2 * AUDIO_MAX_POINTS && channels <= 2));
        must(result != 0 || info.u32FrmBytes == 0 || uint32_t(left) < info.u32FrmBytes || length > 0);
    }
    must(codec.pfnCloseDecoder(handle) == 0);
}

} // namespace

const std::vector<Target> kTargets = {{"decoders", try_decoders, 256}};
