// What the adapter's operations share: argument assertions, frame checks, handles, the walk through a byte
// stream.
#pragma once

#include "base/mpp_error.h"
#include "base/mpp_report.hpp"
#include "mpi/audio/audio_voice_adp.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

// The assertions name the operation they stand in, so they are expanded there.
#define ADP_ASSERT_SET(POINTER)                                                                              \
    ::zep::mpp_assert((POINTER) != nullptr, "mpp/code/mpi/audio/audio_voice_adp", __func__, __LINE__,        \
                      #POINTER " != NULL")

#define ADP_ASSERT_OPEN_ENCODER()                                                                            \
    ADP_ASSERT_SET(ppEncoder);                                                                               \
    ADP_ASSERT_SET(pEncoderAttr)

#define ADP_ASSERT_ENCODE_DATA()                                                                             \
    ADP_ASSERT_SET(pstData);                                                                                 \
    ADP_ASSERT_SET(pu8Outbuf);                                                                               \
    ADP_ASSERT_SET(pu32OutLen)

#define ADP_ASSERT_ENCODE()                                                                                  \
    ADP_ASSERT_SET(pEncoder);                                                                                \
    ADP_ASSERT_ENCODE_DATA()

#define ADP_ASSERT_OPEN_DECODER()                                                                            \
    ADP_ASSERT_SET(ppDecoder);                                                                               \
    ADP_ASSERT_SET(pDecoderAttr)

#define ADP_ASSERT_DECODE_DATA()                                                                             \
    ADP_ASSERT_SET(pu8Inbuf);                                                                                \
    ADP_ASSERT_SET(ps32LeftByte);                                                                            \
    ADP_ASSERT_SET(pu16Outbuf);                                                                              \
    ADP_ASSERT_SET(pu32OutLen);                                                                              \
    ADP_ASSERT_SET(pu32Chns)

#define ADP_ASSERT_DECODE()                                                                                  \
    ADP_ASSERT_SET(pDecoder);                                                                                \
    ADP_ASSERT_DECODE_DATA()

namespace zep::adp {

constexpr ModuleError encoder_error{HI_ID_AENC};
constexpr ModuleError decoder_error{HI_ID_ADEC};

// Logs the common message for the place that refuses, and hands the code on.
int32_t refuse(const char* function, int line, int32_t code);
#define ADP_REFUSE(CODE) ::zep::adp::refuse(__func__, __LINE__, (CODE))

// The samples of a frame; right is null for one channel.
struct Pcm {
    const int16_t* left;
    const int16_t* right;
    size_t points;
};

enum class Channels { one, one_or_two };

// Checks a frame's form and bounds; 0 or an error number.
uint32_t look_at(const AUDIO_FRAME_S& frame, Channels channels, Pcm& pcm);

// Every handle starts with the marker; a decoder's goes on with what its frames have in common.
struct DecoderHead {
    uint32_t marker;
    ADEC_FRAME_INFO_S info;
};

template<class Handle> Handle* allocate_handle() { return static_cast<Handle*>(calloc(1, sizeof(Handle))); }

// A byte stream being decoded: what the in-out arguments of a decode operation say, and what came of it.
class Stream {
public:
    Stream(uint8_t** position, int32_t* left, uint16_t* out, uint32_t* out_bytes, uint32_t* channels)
        : position_(position), left_(left), out_(reinterpret_cast<int16_t*>(out)), out_bytes_(out_bytes)
    {
        *out_bytes = 0;
        *channels = 1;
    }

    // 0, or the code of a position or a count that cannot be.
    int32_t check() const
    {
        if (*left_ < 0) return decoder_error(MPP_ERR_PARAM);
        return *left_ > 0 && !*position_ ? decoder_error(MPP_ERR_NULL) : 0;
    }
    size_t left() const { return size_t(*left_); }
    const uint8_t* octets() const { return *position_; }
    int16_t* pcm() { return out_; }

    // `bytes` are done with and became `points` samples.
    void advance(size_t bytes, size_t points)
    {
        *position_ += bytes;
        *left_ -= int32_t(bytes);
        *out_bytes_ = uint32_t(points * sizeof(int16_t));
    }

private:
    uint8_t** position_;
    int32_t* left_;
    int16_t* out_;
    uint32_t* out_bytes_;
};

} // namespace zep::adp
