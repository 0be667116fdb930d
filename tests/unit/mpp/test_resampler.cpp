// The fixed-ratio resamplers: response measured through 16-bit input and output, framing, limits.
#include "mpi/audio/resampler.h"
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;
using Process = int (*)(RESAMPLER_S*, const int16_t*, int, int16_t*);

struct Ratio {
    int kind, up, down;
    double delay; // periods of the lower rate
    Process process;
    uint32_t hash;
    int low_step() const { return std::max(up, down); } // points of the higher rate in a period of the lower
};

const Ratio kRatios[] = {
    {RESAMPLER_1X2, 2, 1, 31.5, ResamplerMono1X2Process, 0x60a09dd6},
    {RESAMPLER_2X1, 1, 2, 31, ResamplerMono2X1Process, 0x54d07629},
    {RESAMPLER_1X4, 4, 1, 31.75, ResamplerMono1X4Process, 0xa5a868e0},
    {RESAMPLER_4X1, 1, 4, 32, ResamplerMono4X1Process, 0x10938011},
    {RESAMPLER_1X6, 6, 1, 32 - 1 / 6., ResamplerMono1X6Process, 0xdb3be656},
    {RESAMPLER_6X1, 1, 6, 32 - 1 / 3., ResamplerMono6X1Process, 0xea848b69},
};

struct Resampler {
    explicit Resampler(const Ratio& r) : ratio(r), handle(ResamplerCreate(r.kind, 8000), ResamplerDestroy) {}

    Samples frame(const Samples& in)
    {
        Samples out(in.size() * size_t(ratio.up) / size_t(ratio.down));
        EXPECT_EQ(ratio.process(handle.get(), in.data(), int(in.size()), out.data()), int(out.size()));
        return out;
    }

    Samples signal(const Samples& in, const std::vector<int>& frames)
    {
        Samples out;
        for (size_t at = 0, i = 0; at < in.size(); ++i) {
            const size_t n = std::min(in.size() - at, size_t(frames[i % frames.size()]));
            const Samples y = frame(Samples(in.begin() + long(at), in.begin() + long(at + n)));
            out.insert(out.end(), y.begin(), y.end());
            at += n;
        }
        return out;
    }

    const Ratio& ratio;
    std::unique_ptr<RESAMPLER_S, void (*)(RESAMPLER_S*)> handle;
};

Samples noise(size_t n)
{
    Samples x(n);
    uint32_t v = 1;
    for (auto& s : x) s = int16_t((v = v * 1664525 + 1013904223) >> 16);
    return x;
}

// What a tone of `cycles` in kSpan periods of the lower rate becomes, after the filters have settled.
constexpr int kSpan = 1000, kSettle = 100;
struct Tone {
    double gain_db, lag, rest_db,
        all_db; // lag in periods of the lower rate, within one cycle; levels re the input tone
};

// kSpan settled periods of what the tone becomes.
Samples tone(const Ratio& r, int cycles, double amplitude)
{
    const double w = 2 * M_PI * cycles / kSpan / r.down;
    Samples x(size_t((kSpan + kSettle) * r.down));
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = int16_t(lrint(amplitude * sin(w * (double(i) - kSettle * r.down))));
    const Samples y = Resampler(r).signal(x, {240});
    return Samples(y.begin() + kSettle * r.up, y.end());
}

std::complex<double> component(const Samples& y, const Ratio& r, int cycles)
{
    std::complex<double> sum = 0;
    for (size_t i = 0; i < y.size(); ++i)
        sum += double(y[i]) * std::polar(1., -2 * M_PI * cycles / kSpan / r.up * double(i));
    return sum * 2. / double(y.size());
}

Tone measure(const Ratio& r, int cycles, double amplitude)
{
    const Samples y = tone(r, cycles, amplitude);
    const auto c = component(y, r, cycles) * std::complex<double>(0, 1); // of a sine
    double all = 0;
    for (int16_t v : y) all += double(v) * v;
    const double in = amplitude * amplitude / 2, power = all / double(y.size()),
                 rest = power - std::norm(c) / 2;
    const auto db = [&](double p) { return 10 * log10(std::max(p, 1e-9) / in); };
    return {db(std::norm(c) / 2), -std::arg(c) * kSpan / (2 * M_PI * cycles), db(rest), db(power)};
}

TEST(Resampler, PassBandIsFlatToFortyFiveHundredthsWithLinearPhaseAndCleanTones)
{
    for (const Ratio& r : kRatios) {
        for (int cycles : {7, 101, 211, 307, 379, 401, 421, 433, 450}) {
            const Tone t = measure(r, cycles, 16000);
            EXPECT_NEAR(t.gain_db, 0, 0.0005) << r.kind << " at " << cycles;
            const double period = double(kSpan) / cycles, slip = (t.lag - r.delay) / period;
            EXPECT_NEAR(slip, std::round(slip), 1e-5) << r.kind << " at " << cycles;
            EXPECT_LT(t.rest_db, -88) << r.kind << " at " << cycles; // images, and the rounding of 16 bits
        }
        for (int cycles : {41, 127, 373})
            EXPECT_LT(measure(r, cycles, 29000).rest_db, -94) << r.kind << " at " << cycles;
    }
}

TEST(Resampler, WhatWouldFoldIntoThePassBandIsStopped)
{
    for (const Ratio& r : kRatios)
        for (int cycles = 550; cycles < 500 * r.down; cycles += 75)
            EXPECT_LT(measure(r, cycles, 29000).all_db, -88) << r.kind << " at " << cycles;
}

TEST(Resampler, TonesAtTheEdgeHaveImagesOnlyBesideThem)
{
    for (const Ratio& r : kRatios)
        for (int cycles : {460, 475, 490}) {
            if (r.up < 4) continue;
            const Samples y = tone(r, cycles, 29000);
            for (int image = 2 * kSpan - cycles; image < kSpan * r.up / 2; image += kSpan)
                EXPECT_LT(20 * log10(std::abs(component(y, r, image)) / 29000), -85)
                    << r.kind << " at " << image;
        }
}

TEST(Resampler, TheCutIntoFramesDoesNotShow)
{
    const Samples x = noise(12 * 1024);
    for (const Ratio& r : kRatios) {
        const Samples whole = Resampler(r).signal(x, {2040});
        EXPECT_EQ(Resampler(r).signal(x, {160 / r.down * r.down}), whole) << r.kind;
        EXPECT_EQ(Resampler(r).signal(x, {r.down, 7 * r.down, 161 * r.down, 2 * r.down}), whole) << r.kind;
    }
}

TEST(Resampler, EveryTargetComputesTheSameBits)
{
    for (const Ratio& r : kRatios) {
        uint32_t hash = 2166136261u;
        for (int16_t v : Resampler(r).signal(noise(12 * 1024), {480}))
            hash = (hash ^ uint16_t(v)) * 16777619u;
        EXPECT_EQ(hash, r.hash) << r.kind;
    }
}

TEST(Resampler, FullScaleIsLimitedAndNeverWraps)
{
    for (const Ratio& r : kRatios) {
        const int half = 50 * r.down;
        Samples x(size_t(20 * half));
        for (size_t i = 0; i < x.size(); ++i) x[i] = int(i) / half % 2 ? INT16_MIN : INT16_MAX;
        const Samples y = Resampler(r).signal(x, {480});
        const int plateau = 50 * r.up, lag = int(lround(r.delay * r.up));
        bool limited = false;
        for (int i = plateau; i + lag < int(y.size()); ++i) {
            const int v = y[size_t(i + lag)], in = i / plateau % 2 ? -1 : 1, from_edge = i % plateau;
            limited |= v == INT16_MAX || v == INT16_MIN;
            if (std::min(from_edge, plateau - from_edge) > 2 * r.up) {
                EXPECT_GT(v * in, 27000) << r.kind << " " << i;
            }
        }
        EXPECT_TRUE(limited) << r.kind; // a square wave overshoots once its harmonics are cut
    }
}

TEST(Resampler, ConstantsPassUnchangedAndSilenceFollowsASignalWithinTheDelay)
{
    for (const Ratio& r : kRatios) {
        for (int16_t level :
             {int16_t(1), int16_t(-1), int16_t(12345), int16_t(INT16_MAX), int16_t(INT16_MIN)}) {
            const Samples y = Resampler(r).frame(Samples(size_t(200 * r.down), level));
            EXPECT_EQ(Samples(y.begin() + 70 * r.up, y.end()), Samples(y.size() - size_t(70 * r.up), level))
                << r.kind;
        }
        Resampler s(r);
        s.frame(noise(size_t(100 * r.down)));
        s.frame(Samples(size_t(70 * r.down)));
        EXPECT_EQ(s.frame(Samples(size_t(60 * r.down))), Samples(size_t(60 * r.up))) << r.kind;
    }
}

TEST(Resampler, ResetForgetsAndOddFramesLoseTheirTail)
{
    const Samples x = noise(1000);
    for (const Ratio& r : kRatios) {
        Resampler s(r);
        const Samples first = s.frame(x);
        ResamplerReset(s.handle.get());
        EXPECT_EQ(s.frame(x), first) << r.kind;
    }
    Resampler by6(kRatios[5]);
    EXPECT_EQ(by6.frame(x).size(), 166u);
    Resampler whole(kRatios[5]);
    whole.frame(Samples(x.begin(), x.begin() + 996));
    EXPECT_EQ(by6.frame(x), whole.frame(x));
}

TEST(Resampler, RefusesWhatIsOutsideItsRange)
{
    for (int kind : {-1, 0, 7}) {
        EXPECT_EQ(ResamplerCreate(kind, 8000), nullptr);
        EXPECT_EQ(ResamplerOutPoints(kind, 160), -1);
    }
    for (int rate : {0, 7999, 48001}) EXPECT_EQ(ResamplerCreate(RESAMPLER_1X2, rate), nullptr);
    ResamplerDestroy(nullptr);
    for (const Ratio& r : kRatios) {
        Resampler s(r);
        Samples in(RESAMPLER_MAX_POINTS + 1, 1000), out(6 * RESAMPLER_MAX_POINTS, 77), untouched = out;
        RESAMPLER_S* h = s.handle.get();
        EXPECT_EQ(r.process(h, in.data(), RESAMPLER_MAX_POINTS + 1, out.data()), -1);
        EXPECT_EQ(r.process(h, in.data(), -1, out.data()), -1);
        EXPECT_EQ(r.process(h, nullptr, 12, out.data()), -1);
        EXPECT_EQ(r.process(h, in.data(), 12, nullptr), -1);
        EXPECT_EQ(r.process(nullptr, in.data(), 12, out.data()), -1);
        for (const Ratio& other : kRatios)
            EXPECT_EQ(&other == &r || other.process(h, in.data(), 12, out.data()) == -1, true);
        EXPECT_EQ(r.process(h, in.data(), 0, out.data()), 0);
        EXPECT_EQ(out, untouched);
        EXPECT_EQ(r.process(h, in.data(), RESAMPLER_MAX_POINTS, out.data()),
                  RESAMPLER_MAX_POINTS * r.up / r.down);
    }
}

} // namespace
