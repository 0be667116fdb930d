// Echo return loss enhancement (ERLE) of the echo canceller, and what it leaves of a near talker.
#include "bench/dsp/quality.hpp"

#include "mpi/audio/aec.h"

#include <memory>

using namespace voices;

namespace quality {

namespace {

using Canceller = std::unique_ptr<AEC_S, decltype(&AEC_Destroy)>;

Signal run(AEC_S* aec, int points, const Signal& mic, const Signal& far)
{
    Signal out(mic.size());
    for (size_t i = 0; i + size_t(points) <= mic.size(); i += size_t(points))
        AEC_Process(aec, &mic[i], &far[i], &out[i]);
    return out;
}

Signal cancel(int rate, int points, const Signal& mic, const Signal& far, int tail_ms = 128)
{
    const Canceller aec(AEC_Create(rate, points, tail_ms), AEC_Destroy);
    return run(aec.get(), points, mic, far);
}

// Over [from, to) seconds.
int erle(const Signal& mic, const Signal& out, int rate, double from, double to)
{
    const auto a = size_t(from * rate), b = size_t(to * rate);
    return decibels(power(mic, a, b), power(out, a, b));
}

constexpr int kRate = 8000;

void convergence()
{
    for (int rate : {8000, 16000})
        for (int points : {80, 160}) {
            const Signal far = noise(2 * rate, 6000, 1);
            const Signal mic = mix(through(room(rate, 32, 2), far), noise(2 * rate, 12, 3));
            figure(erle(mic, cancel(rate, points, mic, far, 48), rate, 1, 2), 600, "0.1 dB",
                   "echo of noise, second 2, %d Hz, %d points", rate, points);
        }
    for (uint32_t seed : {10u, 20u}) {
        const Signal far = babble(6 * kRate, kRate, 1500, seed);
        const Signal mic = mix(through(room(kRate, 64, seed + 1), far), noise(6 * kRate, 12, seed + 2));
        const Signal out = cancel(kRate, 80, mic, far);
        figure(erle(mic, out, kRate, 0.5, 1.5), 400, "0.1 dB", "echo of speech %u, second 1", seed);
        figure(erle(mic, out, kRate, 4.5, 5.5), 380, "0.1 dB", "echo of speech %u, second 5", seed);
    }
}

void near_talker()
{
    const Signal far = babble(9 * kRate, kRate, 1500, 31), near = babble(3 * kRate, kRate, 800, 34);
    const Signal echo = mix(through(room(kRate, 64, 32), far), noise(9 * kRate, 12, 33));
    const Signal mic = mix(echo, near, 4 * kRate), out = cancel(kRate, 80, mic, far);
    double cross = 0;
    for (size_t i = 0; i < near.size(); ++i) cross += double(near[i]) * out[4 * kRate + i];
    const double own = power(near, 0, near.size()),
                 other = power(out, 4 * kRate, 7 * kRate) - cross * cross / own;
    figure(-std::abs(decibels(cross * cross, own * own)), -5, "0.1 dB",
           "near talker over echo, change of level");
    figure(decibels(own, other), 200, "0.1 dB", "near talker over echo, above the rest");
    figure(erle(mic, out, kRate, 7.3, 8.3), 350, "0.1 dB", "echo after the near talker");
}

// An amplifier that clips.
void overdriven()
{
    const Signal far = babble(6 * kRate, kRate, 1500, 36);
    Signal cut = far;
    for (auto& v : cut) v = std::clamp<int16_t>(v, -1500, 1500);
    const Signal mic = mix(through(room(kRate, 64, 37), cut), noise(6 * kRate, 12, 38));
    figure(erle(mic, cancel(kRate, 80, mic, far), kRate, 4, 6), 360, "0.1 dB",
           "echo of an amplifier that clips");
}

// What changes after 4 seconds: the room, half of it, the loudspeaker's gain.
void changes()
{
    const auto changed = [](uint32_t seed, int level, int ms, auto change) {
        const Signal far = babble(8 * kRate, kRate, level, seed),
                     before = through(room(kRate, ms, seed + 1), far);
        const Signal other = through(room(kRate, ms, seed + 2), far);
        Signal mic = before;
        for (size_t i = 4 * kRate; i < mic.size(); ++i) mic[i] = clip(change(before[i], other[i]));
        mic = mix(mic, noise(8 * kRate, 12, seed + 3));
        return std::pair(mic, cancel(kRate, 80, mic, far));
    };
    const auto [mic, out] = changed(41, 1500, 64, [](int, int other) { return other; });
    figure(erle(mic, out, kRate, 3, 4), 380, "0.1 dB", "before the room changes");
    figure(erle(mic, out, kRate, 6.5, 7.5), 380, "0.1 dB", "another room, 3 s later");
    const auto [half, of_half] = changed(45, 1500, 64, [](int a, int b) { return (a + b) * 7 / 10; });
    figure(erle(half, of_half, kRate, 6, 7), 340, "0.1 dB", "half of the reflections new, 2 s later");
    const auto [loud, of_loud] = changed(51, 1000, 32, [](int a, int) { return 2 * a; });
    figure(erle(loud, of_loud, kRate, 6.5, 7.5), 380, "0.1 dB", "the loudspeaker twice as loud, 3 s later");
}

// Full-scale noise and squares first; a minute of a loudspeaker that the microphone does not hear.
void adversity()
{
    for (int rate : {8000, 16000}) {
        const Signal far = joined(square(2 * rate), babble(5 * rate, rate, 1500, 81));
        Signal mic = mix(through(room(rate, 32, 83), far), noise(7 * rate, 12, 84));
        const Signal loud = noise(2 * rate, 32767, 82);
        std::copy(loud.begin(), loud.end(), mic.begin());
        for (size_t i = 0; i < size_t(rate) / 2; ++i) mic[i] = far[i] == 32767 ? -32768 : 32767;
        const Signal out = cancel(rate, 160, mic, far, 32);
        figure(erle(mic, out, rate, 1, 2), -11, "0.1 dB", "full-scale noise gets no louder, %d Hz", rate);
        figure(erle(mic, out, rate, 6, 7), 340, "0.1 dB", "echo after full scale, %d Hz", rate);
    }
    const Canceller aec(AEC_Create(kRate, 80, 64), AEC_Destroy);
    int worst = 0;
    for (uint32_t s = 0; s < 12; ++s) {
        const Signal far = babble(5 * kRate, kRate, 2000, 900 + s),
                     mic = babble(5 * kRate, kRate, 1500, 950 + s);
        const Signal out = run(aec.get(), 80, mic, far);
        if (s) worst = std::max(worst, std::abs(erle(mic, out, kRate, 0, 5)));
    }
    figure(-worst, -10, "0.1 dB", "near talker beside unrelated sound, worst change");
}

// Nothing to cancel, nothing to lose: without sound from the loudspeaker the microphone passes bit for bit.
void silence()
{
    const Signal near = mix(babble(3 * kRate, kRate, 3000, 61), noise(3 * kRate, 30, 62)), quiet(near.size());
    figure(-changed(near, cancel(kRate, 80, near, quiet), 0), 0, "samples", "microphone without far sound");
    figure(-changed(quiet, cancel(kRate, 80, quiet, quiet), 0), 0, "samples", "silence");
    figure(-changed(quiet, cancel(kRate, 80, quiet, noise(3 * kRate, 20000, 71)), 0), 0, "samples",
           "silence while the loudspeaker plays");
    Signal far = babble(3 * kRate, kRate, 1500, 63);
    std::fill(far.begin() + kRate, far.end(), int16_t(0));
    const Signal mic = mix(through(room(kRate, 64, 64), far), near);
    figure(-changed(mic, cancel(kRate, 80, mic, far), kRate * 13 / 10), 0, "samples",
           "microphone after far sound");
}

} // namespace

void echo_canceller()
{
    convergence();
    near_talker();
    overdriven();
    changes();
    adversity();
    silence();
}

} // namespace quality
