// The fixed-ratio resamplers: exact samples, framing, refusals. Their response is the quality gate's, in bench/dsp.
#include "mpi/audio/resampler.h"

#include "bench/dsp/voices.hpp"

#include <gtest/gtest.h>

#include <memory>

using namespace voices;

namespace {

struct Ratio {
    int kind, up, down;
    int (*process)(RESAMPLER_S*, const int16_t*, int, int16_t*);
    uint32_t hash; // of noise and a square wave at full scale, which reaches the limiter
};

constexpr Ratio kRatios[] = {
    {RESAMPLER_1X2, 2, 1, ResamplerMono1X2Process, 828780357u},
    {RESAMPLER_2X1, 1, 2, ResamplerMono2X1Process, 3228118310u},
    {RESAMPLER_1X4, 4, 1, ResamplerMono1X4Process, 4099930073u},
    {RESAMPLER_4X1, 1, 4, ResamplerMono4X1Process, 291805901u},
    {RESAMPLER_1X6, 6, 1, ResamplerMono1X6Process, 3311233799u},
    {RESAMPLER_6X1, 1, 6, ResamplerMono6X1Process, 880055054u},
};

struct Resampler {
    explicit Resampler(const Ratio& r) : ratio(r), handle(ResamplerCreate(r.kind, 8000), ResamplerDestroy) {}

    Signal frame(const Signal& in)
    {
        Signal out(in.size() * size_t(ratio.up) / size_t(ratio.down));
        EXPECT_EQ(ratio.process(handle.get(), in.data(), int(in.size()), out.data()), int(out.size()));
        return out;
    }
    // In frames of these lengths, over and over.
    Signal signal(const Signal& in, const std::vector<int>& frames)
    {
        Signal out;
        for (size_t at = 0, i = 0; at < in.size(); ++i) {
            const size_t n = std::min(in.size() - at, size_t(frames[i % frames.size()]));
            out = joined(out, frame(Signal(in.begin() + long(at), in.begin() + long(at + n))));
            at += n;
        }
        return out;
    }

    const Ratio& ratio;
    std::unique_ptr<RESAMPLER_S, void (*)(RESAMPLER_S*)> handle;
};

const Signal kLoud = joined(noise(12 * 1024, 32767), square(12 * 300));

} // namespace

TEST(Resampler, EveryTargetComputesTheSameBitsHoweverTheyAreCutIntoFrames)
{
    for (const Ratio& r : kRatios) {
        const Signal whole = Resampler(r).signal(kLoud, {2040});
        EXPECT_EQ(sum(whole), r.hash) << r.kind;
        EXPECT_EQ(Resampler(r).signal(kLoud, {160 / r.down * r.down}), whole) << r.kind;
        EXPECT_EQ(Resampler(r).signal(kLoud, {r.down, 7 * r.down, 161 * r.down, 2 * r.down}), whole)
            << r.kind;
    }
}

TEST(Resampler, ResetForgetsAndOddFramesLoseTheirTail)
{
    const Signal x = noise(1000, 20000);
    for (const Ratio& r : kRatios) {
        Resampler s(r);
        const Signal first = s.frame(x);
        ResamplerReset(s.handle.get());
        EXPECT_EQ(s.frame(x), first) << r.kind;
    }
    Resampler by6(kRatios[5]), whole(kRatios[5]);
    EXPECT_EQ(by6.frame(x).size(), 166u);
    whole.frame(Signal(x.begin(), x.begin() + 996));
    EXPECT_EQ(by6.frame(x), whole.frame(x));
}

TEST(Resampler, RefusesWhatIsOutsideItsRange)
{
    for (int kind : {-1, 0, 7}) {
        EXPECT_EQ(ResamplerCreate(kind, 8000), nullptr);
        EXPECT_EQ(ResamplerOutPoints(kind, 160), -1);
    }
    for (int rate : {0, 7999, 48001}) EXPECT_EQ(ResamplerCreate(RESAMPLER_1X2, rate), nullptr);
    ResamplerReset(nullptr);
    ResamplerDestroy(nullptr);
    for (const Ratio& r : kRatios) {
        Resampler s(r);
        Signal in(RESAMPLER_MAX_POINTS + 1, 1000), out(6 * RESAMPLER_MAX_POINTS, 77), untouched = out;
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
