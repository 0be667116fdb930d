// Audio encoder channels.
#include "mpi/src/mpi_aenc.h"

#include "base/mpp_codec.h"
#include "mpi/src/mpi_aenc_queue.hpp"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_codec_channel.hpp"
#include "mpi/src/mpi_codec_registry.h"
#include "mpi/src/mpi_sys.hpp"
#include "mpi/src/mpi_sys.h"

namespace {

using zep::kLongestFrame;
using zep::MutexLock;

struct Channel {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    bool open = false;
    bool handed = false;     // the oldest frame is with the caller
    uint32_t generation = 0; // changes when a channel is made again in its place
    uint32_t next_number = 0;
    AENC_ENCODER_S codec = {};
    void* encoder = nullptr;
    zep::EncodedQueue queue;
    AENC_CHN_STAT_S stat = {};

    // Whether a caller that released the lock finds the channel that it left.
    [[nodiscard]] bool is(uint32_t left) const { return open && generation == left; }
    [[nodiscard]] bool exists() const { return open; }
};

constinit zep::CodecChannels<Channel> state; // all zeros at the start, so it takes no room in the file
static_assert(AENC_MAX_CHN_NUM == zep::kCodecChannels);
constexpr zep::ModuleError coded{HI_ID_AENC};
constinit zep::CodecModule aenc = {
    .coded = coded,
    .name = "aenc",
    .min_buffer = AENC_MIN_BUF_SIZE,
    .max_buffer = AENC_MAX_BUF_SIZE,
    .driver = {AENC_DEVICE, "open aenc"},
};

int32_t find_codec(const char* function, int line, const AENC_CHN_ATTR_S& attr, AENC_ENCODER_S& codec)
{
    if (int32_t refused = aenc.check_buffer(function, line, attr.u32BufSize)) return refused;
    int32_t failed = MPI_AENC_FindEncoder(attr.enType, &codec);
    if (!failed && codec.u32MaxFrmLen > 0 && codec.u32MaxFrmLen <= kLongestFrame) return 0;
    return aenc.refuse_payload(function, line, attr.enType);
}

int32_t open_channel(Channel& channel, const AENC_ENCODER_S& codec, const AENC_CHN_ATTR_S& attr)
{
    void* encoder = nullptr;
    if (int32_t failed = codec.pfnOpenEncoder(attr.pValue, &encoder)) return failed;
    if (!channel.queue.create(attr.u32BufSize, codec.u32MaxFrmLen)) {
        codec.pfnCloseEncoder(encoder);
        return coded(MPP_ERR_NO_MEMORY);
    }
    channel.codec = codec;
    channel.encoder = encoder;
    channel.open = true;
    channel.handed = false;
    channel.next_number = 0;
    channel.stat = {};
    ++channel.generation;
    return 0;
}

void close_channel(Channel& channel)
{
    channel.open = false;
    channel.codec.pfnCloseEncoder(channel.encoder);
    channel.queue.destroy();
    pthread_cond_broadcast(&channel.changed);
}

uint64_t stamp_of(const AUDIO_FRAME_S& frame)
{
    return uint64_t(frame.au32Pass[1]) << 32 | frame.au32Pass[0];
}

int32_t encode(Channel& channel, const AUDIO_FRAME_S& frame)
{
    if (channel.queue.full()) {
        ++channel.stat.u32Refused;
        return coded(MPP_ERR_FULL);
    }
    const uint32_t room = channel.queue.frame_bytes();
    uint32_t length = room;
    int32_t failed = channel.codec.pfnEncodeFrm(channel.encoder, &frame, channel.queue.room(), &length);
    if (!failed && length > room) failed = coded(MPP_ERR_PARAM); // of a registered codec, which may be wrong
    if (failed) {
        ++channel.stat.u32Failed;
        return failed;
    }
    channel.queue.push(length, channel.next_number++, stamp_of(frame));
    ++channel.stat.u32Encoded;
    pthread_cond_broadcast(&channel.changed);
    return 0;
}

// The input channel that is bound to an encoder channel. The system driver keeps that binding but moves
// no frames, so the encoder fetches them.
bool bound_input(int32_t channel, MPP_CHN_S& source)
{
    MPP_CHN_S self = {HI_ID_AENC, 0, channel};
    source = {};
    return HI_MPI_SYS_GetBindByDest(&self, &source) == 0 && source.s32ModId == HI_ID_AI;
}

// Encodes one frame of the input. The wait for it is in the driver, without the channel's lock.
int32_t pull(Channel& channel, uint32_t generation, const MPP_CHN_S& source, uint32_t block)
{
    AUDIO_FRAME_S frame = {};
    const int32_t device = source.s32DevId, input = source.s32ChnId;
    int32_t failed = HI_MPI_AI_GetFrame(device, input, &frame, nullptr, block);
    if (failed == MPP_ERROR(HI_ID_AI, MPP_ERR_EMPTY)) return coded(MPP_ERR_EMPTY);
    if (failed) return failed;
    int32_t encoded = coded(MPP_ERR_MISSING);
    {
        MutexLock locked(channel.lock);
        if (channel.is(generation)) encoded = encode(channel, frame);
    }
    failed = HI_MPI_AI_ReleaseFrame(device, input, &frame, nullptr);
    return encoded ? encoded : failed;
}

int32_t wait_for_frame(Channel& channel, uint32_t generation, uint32_t block)
{
    MutexLock locked(channel.lock);
    while (block && channel.is(generation) && channel.queue.size() == 0) locked.wait(channel.changed);
    return channel.is(generation) && channel.queue.size() == 0 ? coded(MPP_ERR_EMPTY) : 0;
}

// Returns 0 when the queue has a frame: from the bound input, else from HI_MPI_AENC_SendFrame.
int32_t fetch(int32_t number, Channel& channel, uint32_t generation, uint32_t block)
{
    MPP_CHN_S source;
    return bound_input(number, source) ? pull(channel, generation, source, block)
                                       : wait_for_frame(channel, generation, block);
}

// Under the channel's lock; MPP_ERR_EMPTY while there is nothing.
int32_t hand_out(Channel& channel, AENC_STREAM_HEADER_S& stream)
{
    if (int32_t failed = state.check_exists(aenc, channel)) return failed;
    if (channel.handed) return coded(MPP_ERR_NOT_PERM);
    if (channel.queue.size() == 0) return coded(MPP_ERR_EMPTY);
    stream = channel.queue.front();
    channel.handed = true;
    ++channel.stat.u32Handed;
    return 0;
}

int32_t take_back(Channel& channel, const AENC_STREAM_HEADER_S& stream)
{
    if (!channel.handed) return coded(MPP_ERR_NOT_PERM);
    const AENC_STREAM_HEADER_S oldest = channel.queue.front();
    if (stream.pu8Data != oldest.pu8Data || stream.u32Seq != oldest.u32Seq) return coded(MPP_ERR_PARAM);
    channel.queue.pop();
    channel.handed = false;
    return 0;
}

} // namespace

int32_t MPI_AENC_Init(void)
{
    if (state.initialised.exchange(true)) return 0;
    int32_t failed = MPI_AENC_RegisterBuiltIn();
    if (failed) MPI_AENC_DeInit();
    return failed;
}

int32_t MPI_AENC_DeInit(void)
{
    if (!state.initialised.exchange(false)) return 0;
    for (Channel& channel : state.channels) {
        MutexLock locked(channel.lock);
        if (channel.open) close_channel(channel);
    }
    MPI_AENC_ClearRegistry(); // or the next start could not register the built-in codecs again
    return 0;
}

int32_t HI_MPI_AENC_CreateChn(int32_t s32Chn, const AENC_CHN_ATTR_S* pstAttr)
{
    CODEC_CHECK(aenc, s32Chn);
    if (!pstAttr || !pstAttr->pValue) return coded(MPP_ERR_NULL);
    Channel& channel = state.channels[s32Chn];
    MutexLock locked(channel.lock);
    if (!state.initialised) return coded(MPP_ERR_REFUSED);
    if (channel.open) return coded(MPP_ERR_EXISTS);
    AENC_ENCODER_S codec;
    if (int32_t failed = find_codec(__func__, __LINE__, *pstAttr, codec)) return failed;
    return open_channel(channel, codec, *pstAttr);
}

int32_t HI_MPI_AENC_DestroyChn(int32_t s32Chn)
{
    CODEC_CHECK(aenc, s32Chn);
    return state.with(aenc, s32Chn, [](Channel& channel, MutexLock&) {
        close_channel(channel);
        return 0;
    });
}

int32_t HI_MPI_AENC_SendFrame(int32_t s32Chn, const AUDIO_FRAME_S* pstFrm)
{
    CODEC_CHECK(aenc, s32Chn);
    if (!pstFrm) return coded(MPP_ERR_NULL);
    return state.with(aenc, s32Chn, [=](Channel& channel, MutexLock&) { return encode(channel, *pstFrm); });
}

int32_t HI_MPI_AENC_GetStream(int32_t s32Chn, AENC_STREAM_HEADER_S* pstStream, uint32_t bBlock)
{
    CODEC_CHECK(aenc, s32Chn);
    if (!pstStream) return coded(MPP_ERR_NULL);
    if (int32_t refused = aenc.check_block(__func__, __LINE__, bBlock)) return refused;
    Channel& channel = state.channels[s32Chn];
    uint32_t generation = 0;
    // Another caller may be handed the frame that this one has waited for; this one then waits again.
    for (bool first = true;; first = false) {
        {
            MutexLock locked(channel.lock);
            if (first) generation = channel.generation;
            if (!first && !channel.is(generation)) return coded(MPP_ERR_MISSING);
            int32_t result = hand_out(channel, *pstStream);
            if (result != coded(MPP_ERR_EMPTY) || (!first && !bBlock)) return result;
        }
        if (int32_t failed = fetch(s32Chn, channel, generation, bBlock)) return failed;
    }
}

int32_t HI_MPI_AENC_ReleaseStream(int32_t s32Chn, const AENC_STREAM_HEADER_S* pstStream)
{
    CODEC_CHECK(aenc, s32Chn);
    if (!pstStream) return coded(MPP_ERR_NULL);
    return state.with(aenc, s32Chn,
                      [=](Channel& channel, MutexLock&) { return take_back(channel, *pstStream); });
}

int32_t HI_MPI_AENC_GetChnStat(int32_t s32Chn, AENC_CHN_STAT_S* pstStat)
{
    CODEC_CHECK(aenc, s32Chn);
    if (!pstStat) return coded(MPP_ERR_NULL);
    return state.with(aenc, s32Chn, [=](Channel& channel, MutexLock&) {
        *pstStat = channel.stat;
        pstStat->u32Waiting = channel.queue.size();
        return 0;
    });
}

int32_t HI_MPI_AENC_GetFd(int32_t s32Chn)
{
    CODEC_CHECK(aenc, s32Chn);
    return state.with(aenc, s32Chn, [](Channel&, MutexLock&) { return aenc.descriptor_or_code(); });
}
