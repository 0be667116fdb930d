#include "mpi/audio/aec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <vector>

namespace {

using Signal = std::vector<int16_t>;

// All signals are made with integers, so that they are the same on every target.
class Random {
public:
    explicit Random(uint32_t seed) : state_(seed) {}
    int32_t next(int32_t limit)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return int32_t(int64_t(state_ >> 8) * 2 * limit >> 24) - limit;
    }
    // Nearly Gaussian, standard deviation about 0.58 * limit.
    int32_t bell(int32_t limit) { return (next(limit) + next(limit) + next(limit)) * 4 / 7; }

private:
    uint32_t state_;
};

Signal white(int points, int limit, uint32_t seed)
{
    Random random(seed);
    Signal x(static_cast<size_t>(points));
    for (auto& v : x) v = int16_t(random.bell(limit));
    return x;
}

// Like speech in what matters here: a changing formant over a pulse train, syllables, pauses.
Signal babble(int points, int rate, int level, uint32_t seed)
{
    Random random(seed);
    Signal x(static_cast<size_t>(points));
    int64_t a = 0, b = 0;
    int left = 0, pitch = 80, pole = 0, loud = 0;
    for (int i = 0; i < points; ++i) {
        if (left-- <= 0) {
            left = rate / 8 + random.next(rate / 20);
            pitch = rate / 120 + random.next(rate / 400);
            pole = random.next(24000);
            loud = random.next(10) > 6 ? 0 : level + random.next(level / 2);
        }
        int64_t drive = random.bell(loud / 4 + 1) + (i % pitch == 0 ? loud * 2 : 0);
        int64_t y = drive + (a * pole >> 15) - (b * 26000 >> 15);
        b = a;
        a = y;
        x[size_t(i)] = int16_t(std::clamp<int64_t>(y, -30000, 30000));
    }
    return x;
}

// Q15: 2 ms of delay, then reflections that fade over `ms`; about 6 dB under the source.
std::vector<int32_t> room(int rate, int ms, uint32_t seed)
{
    Random random(seed);
    std::vector<int32_t> h(size_t(rate / 1000 * ms));
    const size_t start = size_t(rate / 500);
    int64_t fade = 5500;
    for (size_t i = start; i < h.size(); ++i) {
        h[i] = int32_t(random.bell(10000) * fade / 10000);
        fade -= fade * 6 / int64_t(h.size() - start);
    }
    h[start] = 9000;
    return h;
}

Signal through(const std::vector<int32_t>& h, const Signal& x)
{
    Signal y(x.size());
    for (size_t i = 0; i < x.size(); ++i) {
        int64_t sum = 0;
        for (size_t j = 0; j < h.size() && j <= i; ++j) sum += int64_t(h[j]) * x[i - j];
        y[i] = int16_t(std::clamp<int64_t>(sum >> 15, -32768, 32767));
    }
    return y;
}

Signal mix(Signal a, const Signal& b, size_t at = 0)
{
    for (size_t i = 0; i < b.size() && at + i < a.size(); ++i)
        a[at + i] = int16_t(std::clamp(a[at + i] + b[i], -32768, 32767));
    return a;
}

double energy(const Signal& x, size_t from, size_t to)
{
    double sum = 1e-3;
    for (size_t i = from; i < to; ++i) sum += double(x[i]) * x[i];
    return sum;
}

// Echo return loss enhancement, dB, over [from, to) seconds.
double erle(const Signal& mic, const Signal& out, int rate, double from, double to)
{
    auto a = size_t(from * rate), b = size_t(to * rate);
    return 10 * std::log10(energy(mic, a, b) / energy(out, a, b));
}

struct Free {
    void operator()(AEC_S* aec) const { AEC_Destroy(aec); }
};
using Canceller = std::unique_ptr<AEC_S, Free>;

Signal run(AEC_S* aec, int points, const Signal& mic, const Signal& far)
{
    Signal out(mic.size());
    for (size_t i = 0; i + size_t(points) <= mic.size(); i += size_t(points))
        EXPECT_EQ(AEC_Process(aec, &mic[i], &far[i], &out[i]), 0);
    return out;
}

Signal cancel(int rate, int points, const Signal& mic, const Signal& far, int tail_ms = 128)
{
    Canceller aec(AEC_Create(rate, points, tail_ms));
    return run(aec.get(), points, mic, far);
}

} // namespace

TEST(Aec, WhiteNoiseIsGoneWithinTheSecondSecondAtEveryRateAndFrame)
{
    for (int rate : {8000, 16000})
        for (int points : {80, 160}) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, " << points << " points");
            Signal far = white(2 * rate, 6000, 1);
            Signal mic = mix(through(room(rate, 32, 2), far), white(2 * rate, 12, 3));
            Signal out = cancel(rate, points, mic, far, 48);
            EXPECT_GE(erle(mic, out, rate, 1, 2), 35);
        }
}

TEST(Aec, SpeechEchoFallsBy25DbInASecondAndBy35InFive)
{
    for (uint32_t seed : {10u, 20u}) {
        Signal far = babble(6 * 8000, 8000, 1500, seed);
        Signal mic = mix(through(room(8000, 64, seed + 1), far), white(6 * 8000, 12, seed + 2));
        Signal out = cancel(8000, 80, mic, far);
        EXPECT_GE(erle(mic, out, 8000, 0.5, 1.5), 25) << seed;
        EXPECT_GE(erle(mic, out, 8000, 4.5, 5.5), 35) << seed;
    }
}

TEST(Aec, NearTalkerOverTheEchoComesThroughAndSpoilsNothing)
{
    const int rate = 8000;
    Signal far = babble(9 * rate, rate, 1500, 31);
    Signal echo = mix(through(room(rate, 64, 32), far), white(9 * rate, 12, 33));
    Signal near = babble(3 * rate, rate, 800, 34);
    Signal mic = mix(echo, near, 4 * rate);
    Signal out = cancel(rate, 80, mic, far);
    double cross = 0;
    for (size_t i = 0; i < near.size(); ++i) cross += double(near[i]) * out[4 * size_t(rate) + i];
    double own = energy(near, 0, near.size());
    EXPECT_NEAR(20 * std::log10(cross / own), 0, 0.5);
    double other = energy(out, 4 * rate, 7 * rate) - cross * cross / own;
    EXPECT_GE(10 * std::log10(own / other), 12);
    EXPECT_GE(erle(mic, out, rate, 7.3, 8.3), 30) << "the filter was led astray";
}

TEST(Aec, AnotherRoomIsLearntWithinThreeSeconds)
{
    const int rate = 8000;
    Signal far = babble(8 * rate, rate, 1500, 41);
    Signal mic = through(room(rate, 64, 42), far), other = through(room(rate, 64, 43), far);
    std::copy(other.begin() + 4 * rate, other.end(), mic.begin() + 4 * rate);
    mic = mix(mic, white(8 * rate, 12, 44));
    Signal out = cancel(rate, 80, mic, far);
    EXPECT_GE(erle(mic, out, rate, 3, 4), 30);
    EXPECT_GE(erle(mic, out, rate, 6.5, 7.5), 30);
}

// Someone walks about: half of the reflections are new, and nothing adds up to more than before.
TEST(Aec, HalfAnotherRoomIsLearntWithinTwoSeconds)
{
    const int rate = 8000;
    Signal far = babble(8 * rate, rate, 1500, 45);
    Signal mic = through(room(rate, 64, 46), far), other = through(room(rate, 64, 47), far);
    for (size_t i = 4 * rate; i < mic.size(); ++i) mic[i] = int16_t((mic[i] + other[i]) * 7 / 10);
    mic = mix(mic, white(8 * rate, 12, 48));
    EXPECT_GE(erle(mic, cancel(rate, 80, mic, far), rate, 6, 7), 25);
}

// An echo that grows to twice its height is wrong by half of what is heard: no reason to start anew.
TEST(Aec, LouderLoudspeakerIsFollowed)
{
    const int rate = 8000;
    Signal far = babble(8 * rate, rate, 1000, 51);
    Signal mic = through(room(rate, 32, 52), far);
    for (size_t i = 4 * rate; i < mic.size(); ++i) mic[i] = int16_t(std::clamp(2 * mic[i], -32768, 32767));
    Signal out = cancel(rate, 80, mic, far);
    EXPECT_GE(erle(mic, out, rate, 6.5, 7.5), 30);
}

TEST(Aec, WithoutFarSoundTheMicrophonePassesBitForBit)
{
    const int rate = 8000;
    Signal near = mix(babble(3 * rate, rate, 3000, 61), white(3 * rate, 30, 62));
    EXPECT_EQ(cancel(rate, 80, near, Signal(near.size())), near);

    Signal far = babble(3 * rate, rate, 1500, 63);
    std::fill(far.begin() + rate, far.end(), int16_t(0));
    Signal mic = mix(through(room(rate, 64, 64), far), near);
    Signal out = cancel(rate, 80, mic, far);
    size_t quiet = size_t(rate) * 13 / 10;
    EXPECT_TRUE(std::equal(out.begin() + ptrdiff_t(quiet), out.end(), mic.begin() + ptrdiff_t(quiet)));
}

TEST(Aec, SilenceStaysSilenceWhateverTheLoudspeakerPlays)
{
    const int rate = 16000;
    Signal silence(rate);
    EXPECT_EQ(cancel(rate, 160, silence, silence), silence);
    EXPECT_EQ(cancel(rate, 160, silence, white(rate, 20000, 71)), silence);
}

// Worst cases for every sum: nothing overflows, nothing is made louder for long, and speech works after.
TEST(Aec, FullScaleSignalsNeitherOverflowNorLastingHarm)
{
    for (int rate : {8000, 16000}) {
        Signal square(size_t(2 * rate)), far = babble(7 * rate, rate, 1500, 81);
        for (size_t i = 0; i < square.size(); ++i) square[i] = i / 37 % 2 ? 32767 : -32768;
        Signal noise = white(2 * rate, 32767, 82);
        Signal mic = mix(through(room(rate, 32, 83), far), white(7 * rate, 12, 84));
        std::copy(square.begin(), square.end(), far.begin());
        std::copy(noise.begin(), noise.end(), mic.begin());
        for (size_t i = 0; i < size_t(rate) / 2; ++i) mic[i] = far[i] == 32767 ? -32768 : 32767;
        Canceller aec(AEC_Create(rate, 160, 32));
        Signal out = run(aec.get(), 160, mic, far);
        EXPECT_LE(energy(out, rate, 2 * rate), 1.3 * energy(mic, rate, 2 * rate));
        EXPECT_GE(erle(mic, out, rate, 6, 7), 25);
    }
}

// A minute of a near talker while the loudspeaker plays what the microphone does not hear: nothing to cancel,
// nothing to lose.
TEST(Aec, UnrelatedLoudspeakerDoesNotGateTheNearTalker)
{
    const int rate = 8000;
    Canceller aec(AEC_Create(rate, 80, 64));
    for (uint32_t s = 0; s < 12; ++s) {
        Signal far = babble(5 * rate, rate, 2000, 900 + s), mic = babble(5 * rate, rate, 1500, 950 + s);
        Signal out = run(aec.get(), 80, mic, far);
        if (s == 0) continue;
        EXPECT_NEAR(erle(mic, out, rate, 0, 5), 0, 1) << s;
    }
}

TEST(Aec, LongFramesEqualTheirBlocksOutMayBeNearAndResetForgets)
{
    for (int rate : {8000, 16000}) {
        Signal far = babble(rate * 9 / 5, rate, 1500, 101); // whole frames of every length
        Signal mic = mix(through(room(rate, 32, 102), far), white(rate * 9 / 5, 200, 103));
        Signal out = cancel(rate, rate / 100, mic, far);
        for (int points : {160, 320, 480}) {
            Canceller aec(AEC_Create(rate, points, 128));
            ASSERT_TRUE(aec) << rate << ' ' << points;
            for (int turn = 0; turn < 2; ++turn) {
                Signal in_place = mic;
                for (size_t i = 0; i < mic.size(); i += size_t(points))
                    AEC_Process(aec.get(), &in_place[i], &far[i], &in_place[i]);
                EXPECT_EQ(in_place, out) << rate << ' ' << points << (turn ? " after a reset" : "");
                AEC_Reset(aec.get());
            }
        }
    }
    AEC_Reset(nullptr);
}

TEST(Aec, RefusesWhatItCannotDo)
{
    const int bad[][3] = {{11025, 80, 64}, {0, 80, 64},     {8000, 0, 64},   {8000, 240, 64},
                          {8000, 80, 15},  {8000, 80, 129}, {16000, 81, 64}, {-8000, 80, -1}};
    for (auto& b : bad) {
        errno = 0;
        EXPECT_EQ(AEC_Create(b[0], b[1], b[2]), nullptr) << b[0] << ' ' << b[1] << ' ' << b[2];
        EXPECT_EQ(errno, EINVAL);
    }
    Canceller aec(AEC_Create(8000, 80, 16));
    ASSERT_TRUE(aec);
    Signal in(80, 5), out(80, 7);
    EXPECT_EQ(AEC_Process(nullptr, in.data(), in.data(), out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), nullptr, in.data(), out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), in.data(), nullptr, out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), in.data(), in.data(), nullptr), -1);
    EXPECT_EQ(out, Signal(80, 7));
    AEC_Destroy(nullptr);
}

// The same samples on every target: FNV-1a over a run with echo, near talker and a change of room.
TEST(Aec, EveryTargetGivesTheSameSamples)
{
    uint32_t hash = 2166136261u;
    for (int rate : {8000, 16000})
        for (int points : {80, 160}) {
            Signal far = babble(4 * rate, rate, 2000, 111);
            Signal mic = through(room(rate, 32, 112), far), other = through(room(rate, 32, 113), far);
            std::copy(other.begin() + 2 * rate, other.end(), mic.begin() + 2 * rate);
            mic = mix(mix(mic, white(4 * rate, 20, 114)), babble(rate, rate, 2000, 115), size_t(rate));
            for (int16_t v : cancel(rate, points, mic, far)) hash = (hash ^ uint16_t(v)) * 16777619u;
        }
    EXPECT_EQ(hash, 3732394310u);
}
