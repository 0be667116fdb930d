// The echo canceller: exact samples, framing, refusals. Its figures are the quality gate's, in bench/dsp.
#include "mpi/audio/aec.h"

#include "bench/dsp/voices.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

using namespace voices;

namespace {

using Canceller = std::unique_ptr<AEC_S, decltype(&AEC_Destroy)>;

Canceller create(int rate, int points, int tail_ms = 128)
{
    return {AEC_Create(rate, points, tail_ms), AEC_Destroy};
}

// `out` may be the microphone's samples themselves.
void run(AEC_S* aec, int points, const Signal& mic, const Signal& far, Signal& out)
{
    for (size_t i = 0; i + size_t(points) <= mic.size(); i += size_t(points))
        EXPECT_EQ(AEC_Process(aec, &mic[i], &far[i], &out[i]), 0);
}

Signal cancel(int rate, int points, const Signal& mic, const Signal& far, int tail_ms = 128)
{
    Signal out(mic.size());
    run(create(rate, points, tail_ms).get(), points, mic, far, out);
    return out;
}

// Echo, a near talker in the second quarter, another room in the second half.
Signal conversation(int rate, const Signal& far)
{
    const size_t quarter = far.size() / 4;
    Signal mic = through(room(rate, 32, 112), far), other = through(room(rate, 32, 113), far);
    std::copy(other.begin() + 2 * quarter, other.end(), mic.begin() + 2 * quarter);
    return mix(mix(mic, noise(4 * quarter, 20, 114)), babble(quarter, rate, 2000, 115), quarter);
}

} // namespace

// Sums over what was compared with the figures once: each stage's arithmetic shows in one of them. 1.5 s each, as the
// emulated processors are slow.
TEST(Aec, EveryTargetGivesTheSameSamples)
{
    uint32_t talk = sum({}), loud = talk, unheard = talk;
    for (int rate : {8000, 16000}) {
        const int quarter = rate * 3 / 8;
        const Signal far = babble(4 * quarter, rate, 2000, 111), mic = conversation(rate, far);
        for (int points = 80; points <= rate / 100; points *= 2)
            talk = sum(cancel(rate, points, mic, far), talk);
        Signal cut = far; // an amplifier that clips
        for (auto& v : cut) v = std::clamp<int16_t>(v, -1500, 1500);
        talk = sum(cancel(rate, 80, through(room(rate, 32, 37), cut), far), talk);

        // Worst cases for every sum: full scale against full scale, then speech.
        const Signal squares = joined(square(quarter), far), other = noise(5 * quarter, 32767, 82);
        Signal echo = joined(other, through(room(rate, 64, 83), far));
        echo.resize(squares.size());
        for (size_t i = 0; i < size_t(quarter) / 2; ++i) echo[i] = squares[i] == 32767 ? -32768 : 32767;
        for (int tail_ms : {16, 128}) loud = sum(cancel(rate, 160, echo, squares, tail_ms), loud);

        // A loudspeaker that the microphone does not hear; an echo that doubles.
        unheard = sum(cancel(rate, 80, babble(4 * quarter, rate, 1500, 950), far, 64), unheard);
        Signal twice = through(room(rate, 32, 52), far);
        for (size_t i = 2 * size_t(quarter); i < twice.size(); ++i) twice[i] = clip(2 * twice[i]);
        unheard = sum(cancel(rate, 80, mix(twice, noise(4 * quarter, 12, 44)), far), unheard);
    }
    EXPECT_EQ(talk, 1014420614u);
    EXPECT_EQ(loud, 2908904104u);
    EXPECT_EQ(unheard, 1859588235u);
}

TEST(Aec, LongFramesEqualTheirBlocksOutMayBeNearAndResetForgets)
{
    for (int rate : {8000, 16000}) {
        const Signal far = babble(rate * 9 / 5, rate, 1500, 101); // whole frames of every length
        const Signal mic = mix(through(room(rate, 32, 102), far), noise(rate * 9 / 5, 200, 103));
        const Signal out = cancel(rate, rate / 100, mic, far);
        for (int points : {160, 320, 480}) {
            const Canceller aec = create(rate, points);
            ASSERT_TRUE(aec) << rate << ' ' << points;
            for (int turn = 0; turn < 2; ++turn) {
                Signal in_place = mic;
                run(aec.get(), points, in_place, far, in_place);
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
    const Canceller aec = create(8000, 80, 16);
    ASSERT_TRUE(aec);
    Signal in(80, 5), out(80, 7);
    EXPECT_EQ(AEC_Process(nullptr, in.data(), in.data(), out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), nullptr, in.data(), out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), in.data(), nullptr, out.data()), -1);
    EXPECT_EQ(AEC_Process(aec.get(), in.data(), in.data(), nullptr), -1);
    EXPECT_EQ(out, Signal(80, 7));
    AEC_Destroy(nullptr);
}
