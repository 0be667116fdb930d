// The noise reducer: exact samples, refusals. Its figures are the quality gate's, in bench/dsp.
#include "mpi/audio/anr.h"

#include "bench/dsp/voices.hpp"

#include <gtest/gtest.h>

#include <memory>

namespace anr_test {
using namespace voices;
namespace {

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
    return run(create(rate, points).get(), std::move(x), points);
}

// A voice by itself, a quiet second, a voice in noise, noise that grows, and every stage's limits: squares,
// alternation, impulses, a constant, each at full scale.
Signal everything(int rate)
{
    Signal x = joined(mix(voice(rate, 4 * rate), noise(4 * rate, 700)), noise(3 * rate, 32767, 2));
    for (int i = 0; i < rate; ++i) x[size_t(i)] = int16_t(x[size_t(i)] / 64);
    x = joined(x, square(rate));
    for (int i = 0; i < rate; ++i) x.push_back(i % 2 ? INT16_MAX : INT16_MIN);
    for (int i = 0; i < rate; ++i) x.push_back(i % 997 ? 0 : INT16_MIN);
    x = joined(joined(x, Signal(size_t(rate), INT16_MIN)), voice(rate, rate));
    return joined(voice(rate, 2 * rate), x);
}

} // namespace

TEST(Anr, EveryTargetComputesTheSameSamples)
{
    const Signal narrow = everything(8000), wide = everything(16000);
    const uint32_t sum8 = sum(reduce(8000, 80, narrow));
    EXPECT_EQ(sum8, 72794780u);
    EXPECT_EQ(sum(reduce(8000, 160, narrow)), sum8);
    EXPECT_EQ(sum(reduce(16000, 80, wide)), 3463997177u);
    EXPECT_EQ(sum(reduce(16000, 160, wide)), 636722236u);
}

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

TEST(Anr, ResetForgetsAndTwoStatesDoNotShare)
{
    const Signal x = mix(voice(8000, 8000), noise(8000, 500));
    const Anr anr = create(8000, 80), other = create(8000, 80);
    const Signal first = run(anr.get(), x, 80);
    run(other.get(), noise(8000, 20000), 80);
    EXPECT_NE(run(anr.get(), x, 80), first);
    for (const Anr* one : {&anr, &other}) {
        ANR_Reset(one->get());
        EXPECT_EQ(run(one->get(), x, 80), first);
    }
}
} // namespace anr_test
