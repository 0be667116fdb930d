// The noise reducer on signals computed from integers, so that every target hears the same.
#include "mpi/audio/anr.h"
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using Signal = std::vector<int16_t>;

class Random {
public:
    explicit Random(uint32_t seed) : state_(seed) {}
    int32_t next(int32_t limit) // -limit..limit, peaked in the middle
    {
        return (draw() % (2 * limit + 1) + draw() % (2 * limit + 1)) / 2 - limit;
    }

private:
    int32_t draw()
    {
        state_ = state_ * 1664525u + 1013904223u;
        return int32_t(state_ >> 8);
    }
    uint32_t state_;
};

Signal noise(int points, int32_t limit, uint32_t seed = 1)
{
    Random random(seed);
    Signal x;
    for (int i = 0; i < points; ++i) x.push_back(int16_t(random.next(limit)));
    return x;
}

// Pulses at a gliding pitch through two resonators that change with every syllable, with pauses between
// words.
Signal voice(int rate, int points)
{
    static constexpr int kFormants[][2] = {{700, 1200}, {300, 2200}, {500, 1700}, {350, 800}};
    Signal x;
    int64_t s1[2] = {}, s2[2] = {};
    int phase = 0;
    for (int i = 0; i < points; ++i) {
        const int ms = int(int64_t(i) * 1000 / rate), syllable = ms / 180;
        const bool voiced = syllable % 5 != 4;
        const int pitch = 110 + (ms / 20) % 40;
        phase += pitch;
        int64_t out = 0;
        const int64_t pulse = voiced && phase >= rate ? 1 << 12 : 0;
        if (phase >= rate) phase -= rate;
        for (int f = 0; f < 2; ++f) {
            // r = 1 - 0.04 * 8000 / rate; cos by its series to the fourth power, Q14
            const int64_t r = 16384 - 655 * 8000 / rate;
            const int64_t a = int64_t(kFormants[syllable % 4][f]) * 102944 / rate; // angle, Q14
            const int64_t a2 = a * a >> 14;
            const int64_t cosine = 16384 - a2 / 2 + (a2 * a2 >> 14) / 24;
            const int64_t y = pulse + (2 * (r * cosine >> 14) * s1[f] >> 14) - ((r * r >> 14) * s2[f] >> 14);
            s2[f] = s1[f];
            s1[f] = y;
            out += y;
        }
        x.push_back(int16_t(std::clamp<int64_t>(out, -32768, 32767)));
    }
    return x;
}

Signal sum(const Signal& a, const Signal& b)
{
    Signal x;
    for (size_t i = 0; i < a.size(); ++i) x.push_back(int16_t(std::clamp(a[i] + b[i], -32768, 32767)));
    return x;
}

using Anr = std::unique_ptr<ANR_STATE_S, decltype(&ANR_Destroy)>;
Anr create(int rate, int points) { return {ANR_Create(rate, 2 * points), ANR_Destroy}; }

Signal run(ANR_STATE_S* anr, Signal x, int points)
{
    for (size_t i = 0; i + size_t(points) <= x.size(); i += size_t(points))
        EXPECT_EQ(ANR_Process(anr, &x[i]), 0);
    return x;
}

Signal reduce(int rate, int points, Signal x)
{
    const Anr anr = create(rate, points);
    return run(anr.get(), std::move(x), points);
}

double power(const Signal& x, size_t from, size_t to)
{
    double p = 1e-3;
    for (size_t i = from; i < to; ++i) p += double(x[i]) * x[i];
    return p;
}

// dB of the clean signal over what differs from it, `late` points of delay taken out
double snr(const Signal& clean, const Signal& x, size_t late, size_t from)
{
    double p = 0, e = 1e-3;
    for (size_t i = from; i + late < x.size(); ++i) {
        p += double(clean[i]) * clean[i];
        e += double(x[i + late] - clean[i]) * (x[i + late] - clean[i]);
    }
    return 10 * std::log10(p / e);
}

uint32_t hash(const Signal& x)
{
    uint32_t h = 2166136261u;
    for (const int16_t v : x) h = (h ^ uint16_t(v)) * 16777619u;
    return h;
}

constexpr int kRates[] = {8000, 16000};

TEST(Anr, RefusesOtherRatesAndLengthsAndNullArguments)
{
    for (const int rate : {0, -8000, 7999, 11025, 32000, 48000})
        EXPECT_EQ(ANR_Create(rate, 160), nullptr) << rate;
    for (const int bytes : {0, -160, 80, 158, 162, 240, 480, 640})
        EXPECT_EQ(ANR_Create(8000, bytes), nullptr) << bytes;
    const Anr anr = create(8000, 80);
    int16_t frame[80] = {};
    EXPECT_EQ(ANR_Process(nullptr, frame), -1);
    EXPECT_EQ(ANR_Process(anr.get(), nullptr), -1);
    ANR_Destroy(nullptr);
    ANR_Reset(nullptr);
}

TEST(Anr, SilenceStaysSilenceEvenAfterNoise)
{
    for (const int rate : kRates) {
        Signal x = noise(rate, 3000);
        x.insert(x.end(), size_t(rate), 0);
        const Signal y = reduce(rate, rate / 100, x);
        EXPECT_TRUE(std::all_of(y.begin() + rate + rate / 10, y.end(), [](int16_t v) { return v == 0; }));
        const Signal zeros(size_t(rate), 0);
        EXPECT_EQ(reduce(rate, rate / 100, zeros), zeros);
    }
}

TEST(Anr, SteadyNoiseOfAnyLevelDropsByTenDecibelsWithinASecond)
{
    for (const int rate : kRates)
        for (const int32_t level : {20, 400, 8000, 32767}) {
            const Signal x = noise(4 * rate, level), y = reduce(rate, rate / 100, x);
            const auto drop = [&](int from, int to) {
                return 10 *
                       std::log10(power(x, size_t(from), size_t(to)) / power(y, size_t(from), size_t(to)));
            };
            EXPECT_GT(drop(rate, 2 * rate), 10) << rate << ' ' << level;
            EXPECT_GT(drop(3 * rate, 4 * rate), 12) << rate << ' ' << level;
        }
}

TEST(Anr, CleanVoicePassesNearlyUnchangedTenMillisecondsLate)
{
    for (const int rate : kRates) {
        const Signal x = voice(rate, 6 * rate), y = reduce(rate, rate / 100, x);
        EXPECT_GT(snr(x, y, size_t(rate / 100), 0), 25) << rate;
    }
}

TEST(Anr, NoisyVoiceComesOutNearerToTheCleanOne)
{
    for (const int rate : kRates) {
        const Signal clean = voice(rate, 8 * rate);
        for (const int32_t level : {2500, 6000}) {
            const Signal x = sum(clean, noise(8 * rate, level)), y = reduce(rate, rate / 100, x);
            const size_t from = size_t(2 * rate);
            EXPECT_GT(snr(clean, y, size_t(rate / 100), from), snr(clean, x, 0, from) + 3)
                << rate << ' ' << level;
        }
    }
}

TEST(Anr, LouderNoiseIsLearnedWithinThreeSeconds)
{
    for (const int rate : kRates) {
        Signal x = noise(4 * rate, 300);
        const Signal louder = noise(4 * rate, 1700, 2);
        x.insert(x.end(), louder.begin(), louder.end());
        const Signal y = reduce(rate, rate / 100, x);
        const size_t from = size_t(7 * rate), to = x.size();
        EXPECT_GT(10 * std::log10(power(x, from, to) / power(y, from, to)), 10) << rate;
    }
}

// A frame's length changes the delay at most: half blocks of 16 kHz come 5 ms later.
TEST(Anr, FrameLengthDoesNotChangeTheSamples)
{
    for (const int rate : kRates) {
        const Signal x = sum(voice(rate, 2 * rate), noise(2 * rate, 500));
        const Signal a = reduce(rate, 80, x), b = reduce(rate, 160, x);
        const std::ptrdiff_t later = rate == 16000 ? 80 : 0;
        EXPECT_TRUE(std::equal(a.begin() + later, a.end(), b.begin())) << rate;
    }
}

TEST(Anr, ResetForgetsAndTwoStatesDoNotShare)
{
    const Signal x = sum(voice(8000, 8000), noise(8000, 500)), loud = noise(8000, 20000);
    const Anr anr = create(8000, 80), other = create(8000, 80);
    const Signal first = run(anr.get(), x, 80);
    run(other.get(), loud, 80);
    EXPECT_NE(run(anr.get(), x, 80), first);
    ANR_Reset(anr.get());
    EXPECT_EQ(run(anr.get(), x, 80), first);
    ANR_Reset(other.get());
    EXPECT_EQ(run(other.get(), x, 80), first);
}

// Full-scale squares, impulses and alternation reach the limits of every stage; sanitizers watch.
TEST(Anr, ExtremesNeitherOverflowNorBreakWhatFollows)
{
    for (const int rate : kRates) {
        Signal x;
        for (int i = 0; i < rate; ++i) x.push_back((i / 37) % 2 ? INT16_MAX : INT16_MIN);
        for (int i = 0; i < rate; ++i) x.push_back(i % 2 ? INT16_MAX : INT16_MIN);
        for (int i = 0; i < rate; ++i) x.push_back(i % 997 ? 0 : INT16_MIN);
        x.insert(x.end(), size_t(rate), INT16_MIN);
        const Signal clean = voice(rate, 8 * rate);
        x.insert(x.end(), clean.begin(), clean.end());
        const Signal y = reduce(rate, rate / 100, x);
        EXPECT_GT(snr(x, y, size_t(rate / 100), size_t(8 * rate)), 20) << rate;
    }
}

// Ten minutes: the last is as quiet as the second, within what other noise changes.
TEST(Anr, LongNoiseDoesNotDrift)
{
    const Anr anr = create(8000, 80);
    std::vector<double> minute;
    for (int m = 0; m < 10; ++m) {
        const Signal x = noise(60 * 8000, 1000, uint32_t(m + 1));
        minute.push_back(10 * std::log10(power(run(anr.get(), x, 80), 0, x.size()) / power(x, 0, x.size())));
    }
    EXPECT_LT(minute[1], -12);
    EXPECT_NEAR(minute[9], minute[1], 2);
}

TEST(Anr, EveryTargetComputesTheSameSamples)
{
    const auto digest = [](int rate, int points) {
        Signal x = sum(voice(rate, 4 * rate), noise(4 * rate, 700));
        for (int i = 0; i < rate; ++i) x[size_t(i)] = int16_t(x[size_t(i)] / 64); // a quiet second first
        return hash(reduce(rate, points, x));
    };
    EXPECT_EQ(digest(8000, 80), 2133746740u);
    EXPECT_EQ(digest(8000, 160), 2133746740u);
    EXPECT_EQ(digest(16000, 80), 4088285450u);
    EXPECT_EQ(digest(16000, 160), 791705967u);
}

} // namespace
