// The echo canceller: blocks of 10 ms (5 ms for frames of 80 points at 16 kHz) through the adaptive
// filter and the residual suppressor.
#include "mpi/audio/aec.h"

#include "mpi/audio/dsp/aec_filter.hpp"
#include "mpi/audio/dsp/aec_suppressor.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

struct AEC_S {
    int points;
    int block;
    int parts;
    bool half_blocks; // of 5 ms
    zep::AecFilter filter;
    zep::AecSuppressor suppressor;
};

namespace {

constexpr int32_t kLeastTailMs = 16;
constexpr int32_t kMostTailMs = 128;

bool valid(int32_t rate, int32_t points, int32_t tail_ms)
{
    return (rate == 8000 || rate == 16000) &&
           (points == 80 || points == 160 || points == 320 || points == 480) && tail_ms >= kLeastTailMs &&
           tail_ms <= kMostTailMs;
}

} // namespace

AEC_S* AEC_Create(int32_t s32Rate, int32_t s32Points, int32_t s32TailMs)
{
    if (!valid(s32Rate, s32Points, s32TailMs)) {
        errno = EINVAL;
        return nullptr;
    }
    auto* aec = static_cast<AEC_S*>(malloc(sizeof(AEC_S)));
    if (!aec) return nullptr;
    const int samples = s32Rate / 1000 * s32TailMs;
    aec->points = s32Points;
    aec->block = std::min(s32Points, s32Rate / 100);
    aec->parts = (samples + aec->block - 1) / aec->block;
    aec->half_blocks = aec->block * 100 < s32Rate;
    AEC_Reset(aec);
    return aec;
}

void AEC_Reset(AEC_S* pstAec)
{
    if (!pstAec) return;
    zep::aec_filter_init(pstAec->filter, pstAec->block, pstAec->parts, pstAec->half_blocks);
    zep::aec_suppressor_init(pstAec->suppressor, pstAec->block);
}

int AEC_Process(AEC_S* pstAec, const int16_t* ps16Near, const int16_t* ps16Far, int16_t* ps16Out)
{
    if (!pstAec || !ps16Near || !ps16Far || !ps16Out) return -1;
    for (int i = 0; i < pstAec->points; i += pstAec->block) {
        zep::aec_filter_run(pstAec->filter, ps16Near + i, ps16Far + i);
        zep::aec_suppressor_run(pstAec->suppressor, pstAec->filter.error, pstAec->filter.residual,
                                pstAec->filter.echo, ps16Out + i);
    }
    return 0;
}

void AEC_Destroy(AEC_S* pstAec) { free(pstAec); }
