// Fixed-ratio resamplers, linear phase.
//
// Up: one polyphase filter whose last phase is the input itself. Two stages would multiply less, but within
// the same delay their images are up to 10 dB louder. Down: the transition at low/2 is made by a half-band
// filter between 2 low and low, where it costs least; a short filter comes before it for 4 and 6. The samples
// between the two are rounded to 16 bits, and the second filter halves that noise.
#include "mpi/audio/resampler.h"
#include "mpi/audio/dsp/fixed_point.hpp"
#include "mpi/audio/dsp/resampler_filters.hpp"
#include <cstdlib>
#include <cstring>

namespace zep::resampler {
namespace {

constexpr int kBlock = 160; // points at the lower rate that are carried through the stages at once
constexpr int kMid = 2 * kBlock;

// The last samples of the past, then a block of new ones, then what wide steps read beyond.
template<int History, int New, int Slack> struct DelayLine {
    int16_t at[History + New + Slack];

    int16_t* fresh() { return at + History; }
    void forget(int n) { memmove(at, at + n, History * sizeof *at); }
};

template<class F, int New, int Step = 1>
using FilterLine = DelayLine<F::kTaps - Step, New, F::kFine - F::kTaps + (kOutputs - 1) * Step>;

struct Up {
    FilterLine<Fraction, kBlock> line;
};

// Half-band decimation. Every second coefficient of a half-band filter is 0 but the centre, which is a half: so the
// odd points go through the other coefficients, the even ones are only added, late enough to meet the centre.
template<class F, int Points> struct HalfBandDown {
    FilterLine<F, Points> odd;
    DelayLine<F::kTaps / 2 - 1, Points, 0> even;
};

struct Down2 {
    HalfBandDown<Fraction, kBlock> only;
};

struct Down4 {
    HalfBandDown<Short, kMid> first;
    HalfBandDown<Sharp, kBlock> second;
};

struct Down6 {
    FilterLine<By3, 3 * kMid, 3> first;
    HalfBandDown<Sharp, kBlock> second;
};

inline int16_t sample(int32_t sum) { return saturate((sum + (1 << (kOne - 1))) >> kOne); }

// Calls emit(i, sum) for n windows of the line, Step samples apart.
template<int Step = 1, class F, class Emit>
inline void sweep(const F& f, const int16_t* line, int n, Emit emit)
{
    for (int i = 0; i < n; i += kOutputs) {
        int32_t sum[kOutputs];
        convolve<Step>(f, line + i * Step, sum);
        for (int k = 0; k < kOutputs && i + k < n; ++k) emit(i + k, sum[k]);
    }
}

// The phases between two input points, in order; the input point that follows them is written after them.
template<class... Phases>
inline void up(Up& s, const int16_t* in, int n, int16_t* out, const Phases&... phases)
{
    constexpr int kRatio = sizeof...(phases) + 1;
    constexpr int kCentre = Fraction::kTaps / 2;
    memcpy(s.line.fresh(), in, size_t(n) * sizeof *in);
    int at = 0;
    const auto one = [&](const Fraction& f) {
        sweep(f, s.line.at, n, [&](int i, int32_t sum) { out[kRatio * i + at] = sample(sum); });
        ++at;
    };
    (one(phases), ...);
    for (int i = 0; i < n; ++i) out[kRatio * i + kRatio - 1] = s.line.at[kCentre + i];
    s.line.forget(n);
}

void up2(Up& s, const int16_t* in, int n, int16_t* out) { up(s, in, n, out, kHalf); }

void up4(Up& s, const int16_t* in, int n, int16_t* out)
{
    up(s, in, n, out, kQuarter, kHalf, kThreeQuarters);
}

void up6(Up& s, const int16_t* in, int n, int16_t* out)
{
    up(s, in, n, out, kSixth, kThird, kHalf, kTwoThirds, kFiveSixths);
}

template<class F, int Points>
inline void half_band_down(const F& f, HalfBandDown<F, Points>& s, const int16_t* in, int n, int16_t* out)
{
    int16_t *odd = s.odd.fresh(), *even = s.even.fresh();
    for (int i = 0; i < n; ++i) {
        even[i] = in[2 * i];
        odd[i] = in[2 * i + 1];
    }
    sweep(f, s.odd.at, n, [&](int i, int32_t sum) {
        const int32_t twice = sum + s.even.at[i] * (1 << kOne);
        out[i] = saturate((twice + (1 << kOne)) >> (kOne + 1));
    });
    s.odd.forget(n);
    s.even.forget(n);
}

void down2(Down2& s, const int16_t* in, int n, int16_t* out) { half_band_down(kHalf, s.only, in, n, out); }

void down4(Down4& s, const int16_t* in, int n, int16_t* out)
{
    int16_t mid[kMid];
    half_band_down(kShort, s.first, in, 2 * n, mid);
    half_band_down(kSharp, s.second, mid, n, out);
}

void down6(Down6& s, const int16_t* in, int n, int16_t* out)
{
    int16_t mid[kMid];
    memcpy(s.first.fresh(), in, size_t(6 * n) * sizeof *in);
    sweep<3>(kBy3, s.first.at, 2 * n, [&](int i, int32_t sum) { mid[i] = sample(sum); });
    s.first.forget(6 * n);
    half_band_down(kSharp, s.second, mid, n, out);
}

struct Ratio {
    int up, down;
};
constexpr Ratio kRatios[] = {{2, 1}, {1, 2}, {4, 1}, {1, 4}, {6, 1}, {1, 6}}; // by kind - 1

bool known(int kind) { return kind >= RESAMPLER_1X2 && kind <= RESAMPLER_6X1; }

} // namespace
} // namespace zep::resampler

using namespace zep::resampler;

struct RESAMPLER_S {
    int kind;
    union {
        Up up;
        Down2 down2;
        Down4 down4;
        Down6 down6;
    };
};

namespace {

// Through the stages in blocks of kBlock points at the lower rate.
template<class Stages>
int convert(RESAMPLER_S* r, int kind, Stages RESAMPLER_S::*stages,
            void (*block)(Stages&, const int16_t*, int, int16_t*), const int16_t* in, int points,
            int16_t* out)
{
    if (!r || !in || !out || r->kind != kind || points < 0 || points > RESAMPLER_MAX_POINTS) return -1;
    const Ratio ratio = kRatios[kind - 1];
    int left = points / ratio.down;
    while (left > 0) {
        const int n = left < kBlock ? left : kBlock;
        block(r->*stages, in, n, out);
        in += n * ratio.down;
        out += n * ratio.up;
        left -= n;
    }
    return ResamplerOutPoints(kind, points);
}

} // namespace

RESAMPLER_S* ResamplerCreate(int kind, int in_rate)
{
    if (!known(kind) || in_rate < 8000 || in_rate > 48000) return nullptr;
    auto* r = static_cast<RESAMPLER_S*>(calloc(1, sizeof(RESAMPLER_S)));
    if (r) r->kind = kind;
    return r;
}

void ResamplerReset(RESAMPLER_S* resampler)
{
    if (!resampler) return;
    const int kind = resampler->kind;
    memset(static_cast<void*>(resampler), 0, sizeof *resampler);
    resampler->kind = kind;
}

void ResamplerDestroy(RESAMPLER_S* resampler) { free(resampler); }

int ResamplerOutPoints(int kind, int points)
{
    if (!known(kind)) return -1;
    return points * kRatios[kind - 1].up / kRatios[kind - 1].down;
}

int ResamplerMono1X2Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_1X2, &RESAMPLER_S::up, up2, in, points, out);
}

int ResamplerMono2X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_2X1, &RESAMPLER_S::down2, down2, in, points, out);
}

int ResamplerMono1X4Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_1X4, &RESAMPLER_S::up, up4, in, points, out);
}

int ResamplerMono4X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_4X1, &RESAMPLER_S::down4, down4, in, points, out);
}

int ResamplerMono1X6Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_1X6, &RESAMPLER_S::up, up6, in, points, out);
}

int ResamplerMono6X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out)
{
    return convert(resampler, RESAMPLER_6X1, &RESAMPLER_S::down6, down6, in, points, out);
}
