// The stream of one decoder channel: what is kept between calls, and the way through the codec to the binder.
#pragma once

#include "base/mpp_codec.h"
#include "mpi/src/mpi_adec.h"

namespace zep {

// For one thread at a time.
class DecodedStream {
public:
    // 0, or a code; nothing stays open then.
    int32_t open(const ADEC_DECODER_S& codec, int32_t channel, const ADEC_CHN_ATTR_S& attr);
    void close();

    // Decodes and sends on. The counts are added to `done`. The first damaged frame's code, or the binder's.
    int32_t feed(uint8_t* data, uint32_t length, ADEC_CHN_STAT_S& done);

    void clear() { kept_ = 0; }
    [[nodiscard]] uint32_t kept() const { return kept_; }

private:
    // What one call has come to.
    struct Pass {
        ADEC_CHN_STAT_S& done;
        int32_t failed = 0; // the first failure

        void fail(int32_t code)
        {
            if (!failed) failed = code;
        }
        void damaged(int32_t code)
        {
            ++done.u32Damaged;
            fail(code);
        }
    };
    enum class Step { progress, starved, damaged };

    int32_t find_frames();
    void feed_pack(uint8_t* data, uint32_t length, Pass& pass);
    void feed_stream(const uint8_t* data, uint32_t length, Pass& pass);
    void drain(uint32_t least, Pass& pass);
    // One call of the codec on at most `limit` of the bytes.
    Step decode(uint8_t** position, uint32_t* left, uint32_t limit, Pass& pass);
    void send(uint32_t bytes, uint32_t channels, Pass& pass);

    ADEC_DECODER_S codec_ = {};
    void* decoder_ = nullptr;
    int32_t channel_ = 0;
    uint16_t* samples_ = nullptr; // AUDIO_MAX_POINTS of two channels
    // Stream mode only:
    uint8_t* buffer_ = nullptr;
    uint32_t room_ = 0;     // bytes of the buffer
    uint32_t kept_ = 0;     // of these in use
    uint32_t smallest_ = 0; // bytes of the codec's smallest frame
    uint32_t unit_ = 0;     // bytes that become one frame of output
};

} // namespace zep
