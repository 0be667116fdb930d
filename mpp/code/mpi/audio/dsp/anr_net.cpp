// A network over bands hears what speech and noise look like, one over lines puts the gains between the harmonics of a
// voice.
//
// Layers: bands x 3 features -> 32 tanh -> 48 gated recurrent units -> 8 offsets a band; then, for each line,
// 7 local features + the band's offsets -> 8 rectified units -> sigmoid. Weights Q6, features Q10, units Q15.
// Feature values are log2 of power divided by 4, so that 1.0 stands for 12 dB.
#include "mpi/audio/dsp/anr_net.hpp"
#include "mpi/audio/dsp/fixed_point.hpp"
#include <algorithm>
#include <cstring>
#include <stddef.h>

namespace zep::anr {
namespace {

// Limits of the features as they were in training, beyond which the weights mean nothing. Of a ratio to the floor,
// -12 to 36 dB; of a band against the mean of the bands, 24 dB. Q8 log2, which is Q10 as a feature.
constexpr int32_t kRatioLow = -4 * 256, kRatioHigh = 12 * 256;
constexpr int32_t kShapeLimit = 8 * 256;
// 64, Q8; seven products of at most 2 x 3 cannot carry it beyond 16 bits
constexpr int32_t kOffsetLimit = 64 * 256;
// 7.8, Q8; eight of them times 2 leave room for the gain's offset in 16 bits
constexpr int16_t kUnitLimit = 2000;

// 1 / (1 + exp(-x)) of x = -8..8 in steps of 1/64, Q15
constexpr auto kSigmoidTable = [] {
    std::array<int16_t, 1025> t{};
    for (int i = 0; i < 1025; ++i) {
        const int32_t v = nearest(32768 / (1 + exp_series(8 - i / 64.0)));
        t[size_t(i)] = int16_t(v > 32767 ? 32767 : v);
    }
    return t;
}();

// Q16 to Q15
int16_t sigmoid_q15(int32_t x)
{
    return kSigmoidTable[size_t((std::clamp<int32_t>(x, -(8 << 16), 8 << 16) + (8 << 16) + 512) >> 10)];
}

// tanh x = 2 sigmoid 2x - 1
int16_t tanh_q15(int32_t x)
{
    return saturate(2 * sigmoid_q15(2 * std::clamp<int32_t>(x, -(8 << 16), 8 << 16)) - 32768);
}

struct LineFeatures {
    int16_t ratio[kMaxLines + 4]; // two zeros on either side; ratio[k + 2] belongs to line k
    int16_t second[kMaxLines];    // mean of the lines two below and two above
    int16_t smooth[kMaxLines];
    int16_t floors[kMaxLines];
};

int16_t ratio_q10(int32_t level_q16, int32_t floor_q16)
{
    return int16_t(std::clamp((level_q16 - floor_q16) >> 8, kRatioLow, kRatioHigh));
}

// What a line knows of itself and its neighbours. A voiced sound's harmonics stand on single lines with gaps between
// them, so lines one and two away say whether a peak is a harmonic or noise.
void line_features(const Tracks& t, int lines, LineFeatures& f)
{
    int16_t* ratio = f.ratio + 2;
    f.ratio[0] = f.ratio[1] = ratio[lines] = ratio[lines + 1] = 0;
    for (int k = 0; k < lines; ++k) {
        ratio[k] = ratio_q10(t.now[k] * 256, t.slow[k]);
        f.smooth[k] = ratio_q10(t.smooth[k], t.slow[k]);
        f.floors[k] = ratio_q10(t.fast[k], t.slow[k]);
    }
    for (int k = 0; k < lines; ++k) f.second[k] = int16_t((ratio[k - 2] + ratio[k + 2]) >> 1);
}

constexpr auto kReciprocal = [] {
    std::array<int32_t, kBands16k> t{};
    for (int b = 0; b < kBands16k; ++b) t[size_t(b)] = nearest(65536.0 / (kBandEdges[b + 1] - kBandEdges[b]));
    return t;
}();

// the mean of a band's lines from their sum
int32_t over_width(int32_t sum, int band)
{
    return int32_t((int64_t(sum) * kReciprocal[size_t(band)]) >> 16);
}

// [band][3]: ratio of the band to its floor, level against the mean of the bands, rise of the floor
void band_features(const Tracks& t, const LineFeatures& f, const int16_t* band_log, int bands, int16_t* out)
{
    int32_t mean = 0;
    for (int b = 0; b < bands; ++b) mean += band_log[b];
    mean /= bands;
    for (int b = 0; b < bands; ++b, out += kFeatures) {
        const int first = kBandEdges[b], width = kBandEdges[b + 1] - first;
        int32_t floor = 0, rise = 0;
        for (int k = first; k < first + width; ++k) {
            floor += t.slow[k] >> 8;
            rise += f.floors[k];
        }
        out[0] = int16_t(std::clamp(band_log[b] - over_width(floor, b), kRatioLow, kRatioHigh));
        out[1] = int16_t(std::clamp(band_log[b] - mean, -kShapeLimit, kShapeLimit));
        out[2] = int16_t(over_width(rise, b));
    }
}

// At most 80 products of 8 by 16 bits, below 2^29. The first factor is widened to 16, which vector units multiply and add
// in pairs.
template<int N> inline int32_t dot(const int8_t* w, const int16_t* x)
{
    int32_t sum = 0;
    for (int i = 0; i < N; ++i) sum += int16_t(w[i]) * x[i];
    return sum;
}

// Gated recurrent units (Cho and others 2014), the reset gate applied behind the recurrent product, as the training's
// library has them. x: kDense inputs, then kHidden units of the last block, which are replaced. Products are
// Q6 x Q15 = Q21; >> 5 makes the Q16 that the sigmoid takes.
void recur(int16_t* x)
{
    const Weights& w = kWeights;
    int16_t* hidden = x + kDense;
    int16_t next[kHidden];
    for (int i = 0; i < kHidden; ++i) {
        const int32_t reset = sigmoid_q15((dot<kDense + kHidden>(w.reset[i], x) + w.reset_offset[i]) >> 5);
        const int32_t keep = sigmoid_q15((dot<kDense + kHidden>(w.keep[i], x) + w.keep_offset[i]) >> 5);
        const int32_t forward = dot<kDense>(w.candidate[i], x) + w.candidate_offset[i];
        const int32_t back = dot<kHidden>(w.candidate_back[i], hidden) + w.candidate_back_offset[i];
        const int32_t candidate = tanh_q15((forward >> 5) + int32_t((int64_t(back) * reset) >> 20));
        next[i] = saturate(candidate + ((keep * (hidden[i] - candidate) + (1 << 14)) >> 15));
    }
    std::memcpy(hidden, next, sizeof next);
}

// High half of a product: what 16-bit vector units multiply with.
inline int16_t high(int16_t a, int16_t b) { return int16_t((a * b) >> 16); }

struct LineUnit {
    int16_t w[kLineInputs], out; // Q14
};

LineUnit line_unit(int u)
{
    LineUnit unit;
    for (int i = 0; i < kLineInputs; ++i) unit.w[i] = int16_t(kWeights.line[u][i] * 256);
    unit.out = int16_t(kWeights.gain[u] * 256);
    return unit;
}

// Two units' share of the gain, for all lines, in 16 bits: w Q14, features Q10, products, offset, limited
// value and sum Q8. A product loses half a step on average, which the offsets have been given in advance.
void line_units(const LineUnit& a, const LineUnit& b, const LineFeatures& f, const int16_t* before,
                const int16_t* offset_a, const int16_t* offset_b, int lines, int16_t* sum)
{
    const auto value = [](const LineUnit& u, int32_t offset, const int16_t* x) {
        int16_t v = int16_t(offset);
        for (int i = 0; i < kLineInputs; ++i) v = int16_t(v + high(u.w[i], x[i]));
        return high(u.out, int16_t(std::clamp<int16_t>(v, 0, kUnitLimit) * 4));
    };
    const int16_t* ratio = f.ratio + 2;
    for (int k = 0; k < lines; ++k) {
        const int16_t x[kLineInputs] = {ratio[k],  ratio[k - 1], ratio[k + 1], f.second[k],
                                        before[k], f.smooth[k],  f.floors[k]};
        sum[k] = int16_t(sum[k] + value(a, offset_a[k], x) + value(b, offset_b[k], x));
    }
}

// Fill from `first` in whole runs: what is written past `end` belongs to the next band, which is filled next.
constexpr int kRun = 8;
void spread(int16_t* to, int first, int end, int16_t value)
{
    for (int k = first; k < end; k += kRun)
        for (int i = 0; i < kRun; ++i) to[k + i] = value;
}

// What the bands tell a line unit, spread over the lines, Q8.
void unit_offset(int u, const int16_t* hidden, int bands, int16_t* offset)
{
    for (int b = 0; b < bands; ++b) {
        const int32_t x = dot<kHidden>(kWeights.context[u][b], hidden) + kWeights.context_offset[u][b];
        const int32_t q8 = std::clamp((x >> 13) + (kLineInputs + 1) / 2, -kOffsetLimit, kOffsetLimit);
        spread(offset, kBandEdges[b], kBandEdges[b + 1], int16_t(q8));
    }
}

} // namespace

void net_gains(Net& net, const Tracks& tracks, const int16_t* band_log, int bands, int16_t* gain_q15)
{
    const int lines = kBandEdges[bands];
    LineFeatures f;
    line_features(tracks, lines, f);
    if (!net.started) std::memcpy(net.before, f.ratio + 2, size_t(lines) * sizeof(int16_t));
    net.started = true;

    int16_t in[kBands16k * kFeatures] = {};
    band_features(tracks, f, band_log, bands, in);
    for (int i = 0; i < kDense; ++i)
        net.units[i] = tanh_q15(dot<kBands16k * kFeatures>(kWeights.dense[i], in) + kWeights.dense_offset[i]);
    recur(net.units);

    int16_t sum[kMaxLines], offset[2][kMaxLines + kRun];
    std::fill(sum, sum + lines, int16_t((kWeights.gain_offset >> 8) + kLineUnits / 2));
    for (int u = 0; u < kLineUnits; u += 2) {
        unit_offset(u, net.units + kDense, bands, offset[0]);
        unit_offset(u + 1, net.units + kDense, bands, offset[1]);
        line_units(line_unit(u), line_unit(u + 1), f, net.before, offset[0], offset[1], lines, sum);
    }
    for (int k = 0; k < lines; ++k) gain_q15[k] = sigmoid_q15(sum[k] * 256);
    std::memcpy(net.before, f.ratio + 2, size_t(lines) * sizeof(int16_t));
}

} // namespace zep::anr
