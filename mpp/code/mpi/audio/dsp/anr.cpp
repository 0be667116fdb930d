// Overlap-add around the gains: window, transform, gain, inverse, window, sum. The analysis window rises over
// 22 ms and falls over the last 10, which resolves the harmonics of a voice; the synthesis window is what
// makes their product a raised cosine of 20 ms, so that blocks add up to the input and no more than 10 ms are
// lost.
#include "mpi/audio/anr.h"
#include "mpi/audio/dsp/fixed_point.hpp"
#include "mpi/audio/dsp/anr_net.hpp"
#include "mpi/audio/dsp/fft.hpp"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace zep;
using namespace zep::anr;

namespace {

constexpr int kMaxBlock = 160;
constexpr uint64_t kPowerFloor = 1 << 22; // about 0.1 of a quantisation step: what silence counts as

template<int Window, int Block>
constexpr auto kAnalysis = [] {
    std::array<int16_t, Window> w{}; // Q15
    for (int n = 0; n < Window; ++n) {
        const int rise = Window - Block;
        const double v = n < rise ? sin_series(kPi / 2 * (n + 0.5) / rise)
                                  : cos_series(kPi / 2 * (n - rise + 0.5) / Block);
        const int32_t q = nearest(32768 * v);
        w[size_t(n)] = int16_t(q > 32767 ? 32767 : q);
    }
    return w;
}();

template<int Window, int Block>
constexpr auto kSynthesis = [] {
    std::array<int16_t, 2 * Block> w{}; // Q14
    for (int n = 0; n < 2 * Block; ++n) {
        const double hann = 0.5 + 0.5 * cos_series(kPi * (n + 0.5 - Block) / Block);
        w[size_t(n)] =
            int16_t(nearest(16384 * hann * 32768 / kAnalysis<Window, Block>[size_t(Window - 2 * Block + n)]));
    }
    return w;
}();

// what depends on the sample rate
struct Plan {
    int rate, block, window, bands;
    const int16_t *analysis, *synthesis;
    const Fft* fft;
    int shift; // of a windowed sample, Q15, to the transform's input, Q6 or Q5: n of them stay below 2^29
};
constexpr Plan kPlans[] = {
    {8000, 80, 256, kBands8k, kAnalysis<256, 80>.data(), kSynthesis<256, 80>.data(), &kFft256, 9},
    {16000, 160, 512, kBands16k, kAnalysis<512, 160>.data(), kSynthesis<512, 160>.data(), &kFft512, 10},
};

// everything that a reset clears
struct Memory {
    Tracks tracks;
    Net net;
    int filled = 0;                  // points of the block gathered so far
    int16_t past[kMaxWindow] = {};   // the window's samples, the latest last
    int16_t ready[kMaxBlock] = {};   // results not handed out yet
    int32_t overlap[kMaxBlock] = {}; // second half of the last synthesis, Q10
};

} // namespace

struct ANR_STATE_S {
    const Plan* plan;
    int points;
    Memory memory;
};

namespace {

// Window and transform: past in Q0, window in Q15, lines in Q6 (8 kHz) or Q5, summed over the window.
void analyse(const Plan& plan, const int16_t* past, Complex* lines)
{
    int32_t x[kMaxWindow];
    for (int n = 0; n < plan.window; ++n)
        x[n] = (past[n] * plan.analysis[n] + (1 << (plan.shift - 1))) >> plan.shift;
    plan.fft->forward(x, lines);
}

// log2 of the lines in a band, Q8
constexpr auto kWidthLog = [] {
    std::array<int16_t, kBands16k> t{};
    for (int b = 0; b < kBands16k; ++b) {
        const int width = kBandEdges[b + 1] - kBandEdges[b], whole = int(std::bit_width(unsigned(width))) - 1;
        t[size_t(b)] = int16_t(whole * 256 + nearest(256 * log2_series(double(width) / (1 << whole))));
    }
    return t;
}();

// Power of lines and bands as logarithms, with 0 at the square of one quantisation step.
void measure(const Plan& plan, const Complex* lines, int16_t* line_log, int16_t* band_log)
{
    // A sample of 1 in every point of the window is a line of 2^14.
    constexpr auto level_q8 = [](uint64_t power) { return (log2_q24(power) - (28 << 24) + (1 << 15)) >> 16; };
    for (int b = 0; b < plan.bands; ++b) {
        uint64_t sum = 0;
        for (int k = kBandEdges[b]; k < kBandEdges[b + 1]; ++k) {
            const uint64_t power = uint64_t(int64_t(lines[k].re) * lines[k].re) +
                                   uint64_t(int64_t(lines[k].im) * lines[k].im) + kPowerFloor;
            line_log[k] = int16_t(level_q8(power));
            sum += power;
        }
        band_log[b] = int16_t(level_q8(sum) - kWidthLog[size_t(b)]);
    }
}

// Half of the lines, so that no set of gains can carry the inverse beyond 32 bits
void apply(const int16_t* gain_q15, int lines, Complex* x)
{
    for (int k = 0; k < lines; ++k) {
        x[k].re = int32_t((int64_t(x[k].re) * gain_q15[k]) >> 16);
        x[k].im = int32_t((int64_t(x[k].im) * gain_q15[k]) >> 16);
    }
}

// Only the last two blocks of the inverse are windowed and used: the first of them, added to what the last call left,
// is ready; the second waits for the next call.
void synthesise(const Plan& plan, Complex* lines, Memory& m)
{
    int32_t x[kMaxWindow];
    plan.fft->inverse(lines, x);
    const int down = 18 - plan.shift; // from half the scale of the transform's input, times Q14, to Q10
    const int32_t* last = x + plan.window - 2 * plan.block;
    for (int n = 0; n < plan.block; ++n) {
        const int32_t sum = m.overlap[n] + int32_t((int64_t(last[n]) * plan.synthesis[n]) >> down);
        m.ready[n] = saturate((sum + (1 << 9)) >> 10);
        m.overlap[n] = int32_t((int64_t(last[plan.block + n]) * plan.synthesis[plan.block + n]) >> down);
    }
}

void process_block(const Plan& plan, Memory& m)
{
    const int count = plan.window / 2 + 1;
    Complex lines[kMaxLines];
    int16_t band_log[kBands16k], gain_q15[kMaxLines];
    analyse(plan, m.past, lines);
    measure(plan, lines, m.tracks.now, band_log);
    track(m.tracks, count);
    net_gains(m.net, m.tracks, band_log, plan.bands, gain_q15);
    apply(gain_q15, count, lines);
    synthesise(plan, lines, m);
}

const Plan* plan_of(int rate)
{
    for (const Plan& plan : kPlans)
        if (plan.rate == rate) return &plan;
    return nullptr;
}

} // namespace

ANR_STATE_S* ANR_Create(int rate, int frame_bytes)
{
    const Plan* plan = plan_of(rate);
    if (!plan || (frame_bytes != 160 && frame_bytes != 320)) return nullptr;
    void* room = malloc(sizeof(ANR_STATE_S));
    return room ? new (room) ANR_STATE_S{plan, frame_bytes / 2, {}} : nullptr;
}

int ANR_Process(ANR_STATE_S* anr, int16_t* frame)
{
    if (!anr || !frame) return -1;
    const Plan& plan = *anr->plan;
    Memory& m = anr->memory;
    for (int done = 0; done < anr->points;) {
        const int some = std::min(anr->points - done, plan.block - m.filled);
        const size_t bytes = size_t(some) * sizeof(int16_t);
        memcpy(m.past + plan.window - plan.block + m.filled, frame + done, bytes);
        m.filled += some;
        if (m.filled == plan.block) {
            process_block(plan, m);
            memmove(m.past, m.past + plan.block, size_t(plan.window - plan.block) * sizeof(int16_t));
            m.filled = 0;
        }
        memcpy(frame + done, m.ready + m.filled,
               bytes); // of half a block: the second half waits for the next frame
        done += some;
    }
    return 0;
}

void ANR_Reset(ANR_STATE_S* anr)
{
    if (anr) anr->memory = Memory{};
}

void ANR_Destroy(ANR_STATE_S* anr) { free(anr); }
