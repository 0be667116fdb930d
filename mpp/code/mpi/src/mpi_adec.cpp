// Audio decoder channels.
#include "mpi/src/mpi_adec.h"

#include "base/mpp_codec.h"
#include "base/mpp_error.h"
#include "mkp/bind/sys_bind.h"
#include "mpi/src/mpi_adec_stream.hpp"
#include "mpi/src/mpi_codec_channel.hpp"
#include "mpi/src/mpi_codec_registry.h"
#include "mpi/src/mpi_sys.hpp"

namespace {

using zep::MutexLock;

struct Channel {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    enum { absent, open, closing } stage = absent;
    bool busy = false;         // a caller uses the stream, without the lock, since receivers may wait long
    uint32_t generation = 0;   // changes when a channel is made again in its place
    zep::DecodedStream stream; // of the busy caller, else under the lock
    ADEC_CHN_STAT_S stat = {};

    [[nodiscard]] bool exists() const { return stage == open; }
    [[nodiscard]] bool is(uint32_t left) const { return exists() && generation == left; }
};

constinit zep::CodecChannels<Channel> state; // all zeros at the start, so it takes no room in the file
static_assert(ADEC_MAX_CHN_NUM == zep::kCodecChannels);
constexpr zep::ModuleError coded{HI_ID_ADEC};
constinit zep::CodecModule adec = {
    .coded = coded,
    .name = "adec",
    .min_buffer = ADEC_MIN_BUF_SIZE,
    .max_buffer = ADEC_MAX_BUF_SIZE,
    .driver = {ADEC_DEVICE, "open adec"},
};

int32_t check_attr(const char* function, int line, const ADEC_CHN_ATTR_S& attr, ADEC_DECODER_S& codec)
{
    if (int32_t refused = adec.check_buffer(function, line, attr.u32BufSize)) return refused;
    if (attr.enMode > ADEC_MODE_STREAM) {
        zep::mpp_log(function, line, "enMode:%u is invalid\n", attr.enMode);
        return coded(MPP_ERR_PARAM);
    }
    if (MPI_ADEC_FindDecoder(attr.enType, &codec) == 0) return 0;
    return adec.refuse_payload(function, line, attr.enType);
}

// Takes the channel's stream for one caller. Under the channel's lock, which is released while another has
// it.
int32_t take(Channel& channel, MutexLock& locked, bool block)
{
    const uint32_t generation = channel.generation;
    while (channel.is(generation) && channel.busy) {
        if (!block) return coded(MPP_ERR_FULL);
        locked.wait(channel.changed);
    }
    if (!channel.is(generation)) return coded(MPP_ERR_MISSING);
    channel.busy = true;
    return 0;
}

void give_back(Channel& channel)
{
    channel.busy = false;
    pthread_cond_broadcast(&channel.changed);
}

void close_channel(Channel& channel, MutexLock& locked)
{
    channel.stage = Channel::closing; // no caller takes it any more
    pthread_cond_broadcast(&channel.changed);
    while (channel.busy) locked.wait(channel.changed);
    channel.stream.close();
    channel.stage = Channel::absent;
    pthread_cond_broadcast(&channel.changed);
}

} // namespace

int32_t MPI_ADEC_Init(void)
{
    if (state.initialised.exchange(true)) return 0;
    const SYS_BIND_SENDER_S sender = {HI_ID_ADEC, 1, ADEC_MAX_CHN_NUM};
    int32_t failed = SYS_BIND_RegisterSender(&sender);
    if (!failed) failed = MPI_ADEC_RegisterBuiltIn();
    if (failed) MPI_ADEC_DeInit();
    return failed;
}

int32_t MPI_ADEC_DeInit(void)
{
    if (!state.initialised.exchange(false)) return 0;
    for (Channel& channel : state.channels) {
        MutexLock locked(channel.lock);
        if (channel.stage == Channel::open) close_channel(channel, locked);
        while (channel.stage == Channel::closing) locked.wait(channel.changed); // by another thread
    }
    SYS_BIND_UnRegisterSender(HI_ID_ADEC);
    MPI_ADEC_ClearRegistry(); // or the next start could not register the built-in codecs again
    return 0;
}

int32_t HI_MPI_ADEC_CreateChn(int32_t s32Chn, const ADEC_CHN_ATTR_S* pstAttr)
{
    CODEC_CHECK(adec, s32Chn);
    if (!pstAttr || !pstAttr->pValue) return coded(MPP_ERR_NULL);
    Channel& channel = state.channels[s32Chn];
    MutexLock locked(channel.lock);
    if (!state.initialised) return coded(MPP_ERR_REFUSED);
    if (channel.stage != Channel::absent) return coded(MPP_ERR_EXISTS);
    ADEC_DECODER_S codec;
    if (int32_t refused = check_attr(__func__, __LINE__, *pstAttr, codec)) return refused;
    if (int32_t failed = channel.stream.open(codec, s32Chn, *pstAttr)) return failed;
    channel.stage = Channel::open;
    channel.stat = {};
    ++channel.generation;
    return 0;
}

int32_t HI_MPI_ADEC_DestroyChn(int32_t s32Chn)
{
    CODEC_CHECK(adec, s32Chn);
    return state.with(adec, s32Chn, [](Channel& channel, MutexLock& locked) {
        close_channel(channel, locked);
        return 0;
    });
}

int32_t HI_MPI_ADEC_SendStream(int32_t s32Chn, const AENC_STREAM_HEADER_S* pstStream, uint32_t bBlock)
{
    CODEC_CHECK(adec, s32Chn);
    if (!pstStream || (!pstStream->pu8Data && pstStream->u32Len > 0)) return coded(MPP_ERR_NULL);
    if (int32_t refused = adec.check_block(__func__, __LINE__, bBlock)) return refused;
    if (pstStream->u32Len > ADEC_MAX_STREAM_LEN) return coded(MPP_ERR_PARAM);
    const auto take_it = [=](Channel& channel, MutexLock& locked) { return take(channel, locked, bBlock); };
    if (int32_t failed = state.with(adec, s32Chn, take_it)) return failed;
    Channel& channel = state.channels[s32Chn];
    ADEC_CHN_STAT_S done = {};
    int32_t failed = channel.stream.feed(pstStream->pu8Data, pstStream->u32Len, done);
    MutexLock locked(channel.lock);
    channel.stat.u32Frames += done.u32Frames;
    channel.stat.u32Damaged += done.u32Damaged;
    channel.stat.u32Unheard += done.u32Unheard;
    channel.stat.u64Bytes += done.u64Bytes;
    give_back(channel);
    return failed;
}

int32_t HI_MPI_ADEC_ClearChnBuf(int32_t s32Chn)
{
    CODEC_CHECK(adec, s32Chn);
    return state.with(adec, s32Chn, [](Channel& channel, MutexLock& locked) {
        if (int32_t failed = take(channel, locked, true)) return failed;
        channel.stream.clear();
        give_back(channel);
        return 0;
    });
}

int32_t HI_MPI_ADEC_GetChnStat(int32_t s32Chn, ADEC_CHN_STAT_S* pstStat)
{
    CODEC_CHECK(adec, s32Chn);
    if (!pstStat) return coded(MPP_ERR_NULL);
    return state.with(adec, s32Chn, [=](Channel& channel, MutexLock& locked) {
        if (int32_t failed = take(channel, locked, true)) return failed;
        *pstStat = channel.stat;
        pstStat->u32Kept = channel.stream.kept();
        give_back(channel);
        return 0;
    });
}

int32_t HI_MPI_ADEC_GetFd(int32_t s32Chn)
{
    CODEC_CHECK(adec, s32Chn);
    return state.with(adec, s32Chn, [](Channel&, MutexLock&) { return adec.descriptor_or_code(); });
}
