// Decoder channels: from bytes to frames at the binder.
#include "mpi/src/mpi_adec_stream.hpp"

#include "base/mpp_report.hpp"
#include "mkp/bind/sys_bind.h"
#include "mpi/src/mpi_codec_channel.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zep {

namespace {

constexpr uint32_t kMaxBytes = AUDIO_MAX_POINTS * sizeof(int16_t); // of one channel
constexpr uint32_t kUnits = 4;                                     // that the buffer of stream mode holds

constexpr zep::ModuleError coded{HI_ID_ADEC};

} // namespace

int32_t DecodedStream::open(const ADEC_DECODER_S& codec, int32_t channel, const ADEC_CHN_ATTR_S& attr)
{
    void* decoder = nullptr;
    if (int32_t failed = codec.pfnOpenDecoder(attr.pValue, &decoder)) return failed;
    codec_ = codec;
    decoder_ = decoder;
    channel_ = channel;
    int32_t failed = attr.enMode == ADEC_MODE_STREAM ? find_frames() : 0;
    if (!failed) {
        samples_ = static_cast<uint16_t*>(malloc(2 * kMaxBytes));
        buffer_ = room_ ? static_cast<uint8_t*>(malloc(room_)) : nullptr;
        if (samples_ && (buffer_ || !room_)) return 0;
        failed = coded(MPP_ERR_NO_MEMORY);
    }
    close();
    return failed;
}

void DecodedStream::close()
{
    if (codec_.pfnCloseDecoder) codec_.pfnCloseDecoder(decoder_);
    free(samples_);
    free(buffer_);
    *this = {};
}

// Where frames end must be known to find the next one in a stream.
int32_t DecodedStream::find_frames()
{
    ADEC_FRAME_INFO_S info = {};
    if (int32_t failed = codec_.pfnGetFrmInfo(decoder_, &info)) return failed;
    if (info.u32FrmBytes == 0 || info.u32FrmBytes > kLongestFrame || info.u32PtNumPerFrm == 0)
        return coded(MPP_ERR_PARAM);
    smallest_ = info.u32FrmBytes;
    unit_ = smallest_ * std::max<uint32_t>(1, ADEC_STREAM_POINTS / info.u32PtNumPerFrm);
    room_ = kUnits * unit_;
    return 0;
}

int32_t DecodedStream::feed(uint8_t* data, uint32_t length, ADEC_CHN_STAT_S& done)
{
    Pass pass = {done};
    done.u64Bytes += length;
    if (!buffer_ && length == 0) return coded(MPP_ERR_PARAM);
    if (buffer_)
        feed_stream(data, length, pass);
    else
        feed_pack(data, length, pass);
    return pass.failed;
}

void DecodedStream::feed_pack(uint8_t* data, uint32_t length, Pass& pass)
{
    while (length > 0) {
        switch (decode(&data, &length, length, pass)) {
        case Step::progress:
            break;
        case Step::starved: // a frame that ends too early
            return pass.damaged(coded(MPP_ERR_PARAM));
        case Step::damaged:
            return;
        }
    }
}

void DecodedStream::feed_stream(const uint8_t* data, uint32_t length, Pass& pass)
{
    const bool flush = length == 0;
    while (length > 0) {
        const uint32_t taken = std::min(length, room_ - kept_);
        memcpy(buffer_ + kept_, data, taken);
        kept_ += taken;
        data += taken;
        length -= taken;
        drain(unit_, pass);
    }
    if (!flush) return;
    drain(1, pass);
    if (kept_ > 0) pass.damaged(coded(MPP_ERR_PARAM));
    kept_ = 0;
}

void DecodedStream::drain(uint32_t least, Pass& pass)
{
    uint8_t* position = buffer_;
    uint32_t left = kept_;
    uint32_t rest = 0; // bytes of the unit that is being decoded
    while (left > 0 && (rest > 0 || left >= least)) {
        const uint32_t before = left;
        if (rest == 0) rest = std::min(left, unit_);
        Step step = decode(&position, &left, rest, pass);
        // A frame may be longer than the smallest.
        if (step == Step::starved && left > rest) step = decode(&position, &left, left, pass);
        if (step == Step::starved && left < room_) break;
        if (step == Step::starved) pass.damaged(coded(MPP_ERR_PARAM)); // nothing more fits
        if (step != Step::progress) {
            // The codec did not advance: skip one smallest frame.
            const uint32_t skipped = std::min(left, smallest_);
            position += skipped;
            left -= skipped;
        }
        rest -= std::min(rest, before - left);
    }
    memmove(buffer_, position, left);
    kept_ = left;
}

// The results of a registered codec are checked before they are used.
DecodedStream::Step DecodedStream::decode(uint8_t** position, uint32_t* left, uint32_t limit, Pass& pass)
{
    const uint32_t given = std::min(*left, limit);
    uint8_t* at = *position;
    auto rest = int32_t(given);
    uint32_t bytes = 0, channels = 1;
    int32_t failed = codec_.pfnDecodeFrm(decoder_, &at, &rest, samples_, &bytes, &channels);
    const bool in_bounds = rest >= 0 && uint32_t(rest) <= given &&
                           at == *position + (given - uint32_t(rest)) && bytes <= kMaxBytes &&
                           channels >= 1 && channels <= 2;
    if (!in_bounds) {
        pass.damaged(coded(MPP_ERR_PARAM));
        return Step::damaged;
    }
    const bool moved = uint32_t(rest) < given;
    *position = at;
    *left -= given - uint32_t(rest);
    if (failed) pass.damaged(failed);
    if (!failed && bytes > 0) send(bytes, channels, pass);
    if (moved) return Step::progress;
    return failed ? Step::damaged : Step::starved;
}

void DecodedStream::send(uint32_t bytes, uint32_t channels, Pass& pass)
{
    auto* block = reinterpret_cast<uint8_t*>(samples_);
    AUDIO_FRAME_S frame = {};
    frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
    frame.u32SoundMode = channels == 2 ? AUDIO_SOUND_STEREO : AUDIO_SOUND_MONO;
    frame.pu8VirtAddr[0] = block;
    frame.pu8VirtAddr[1] = channels == 2 ? block + bytes : nullptr;
    frame.u32Len = bytes;
    frame.s32PoolId = -1;
    ++pass.done.u32Frames;
    uint32_t taken = 0;
    pass.fail(SYS_BIND_SendDataCounted(HI_ID_ADEC, 0, channel_, MPP_DATA_AUDIO_FRAME, &frame, &taken));
    if (taken == 0) ++pass.done.u32Unheard;
}

} // namespace zep
