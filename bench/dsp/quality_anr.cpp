// What the noise reducer takes from noise, and what it leaves of a voice.
#include "bench/dsp/quality.hpp"

#include "mpi/audio/anr.h"

#include <memory>

using namespace voices;

namespace quality {

namespace {

using Reducer = std::unique_ptr<ANR_STATE_S, decltype(&ANR_Destroy)>;

Signal run(ANR_STATE_S* anr, Signal x, size_t points)
{
    for (size_t i = 0; i + points <= x.size(); i += points) ANR_Process(anr, &x[i]);
    return x;
}

// Frames of 10 ms.
Signal reduce(int rate, const Signal& x)
{
    const Reducer anr(ANR_Create(rate, rate / 50), ANR_Destroy);
    return run(anr.get(), x, size_t(rate / 100));
}

int drop(const Signal& before, const Signal& after, int from, int to)
{
    return decibels(power(before, size_t(from), size_t(to)), power(after, size_t(from), size_t(to)));
}

// The clean signal over what differs from it, `late` points of delay taken out.
int snr(const Signal& clean, const Signal& x, int late, int from)
{
    Signal rest(clean.begin() + from, clean.end() - late);
    const size_t start = size_t(from + late);
    for (size_t i = 0; i < rest.size(); ++i) rest[i] = clip(x[start + i] - rest[i]);
    return decibels(power(clean, size_t(from), size_t(from) + rest.size()), power(rest, 0, rest.size()));
}

void steady_noise(int rate)
{
    for (int level : {20, 400, 8000, 32767}) {
        const Signal x = noise(4 * rate, level), y = reduce(rate, x);
        figure(drop(x, y, rate, 2 * rate), 300, "0.1 dB", "noise of %d, second 2, %d Hz", level, rate);
        figure(drop(x, y, 3 * rate, 4 * rate), 250, "0.1 dB", "noise of %d, second 4, %d Hz", level, rate);
    }
    const Signal x = joined(noise(4 * rate, 300), noise(4 * rate, 1700, 2));
    figure(drop(x, reduce(rate, x), 7 * rate, 8 * rate), 250, "0.1 dB", "louder noise, 3 s later, %d Hz",
           rate);
}

// Also behind noise, a tenth of a second later.
void silence(int rate)
{
    const Signal zeros(size_t(rate), 0), after = joined(noise(rate, 3000), zeros);
    figure(-changed(zeros, reduce(rate, zeros), 0), 0, "samples", "silence, %d Hz", rate);
    figure(-changed(after, reduce(rate, after), size_t(rate + rate / 10)), 0, "samples",
           "silence after noise, %d Hz", rate);
}

void voices_through(int rate)
{
    const int late = rate / 100;
    const Signal clean = voice(rate, 8 * rate);
    figure(snr(clean, reduce(rate, clean), late, 0), 400, "0.1 dB", "clean voice, %d Hz", rate);
    for (int level : {2000, 5000}) {
        const Signal x = mix(clean, noise(8 * rate, level));
        figure(snr(clean, reduce(rate, x), late, 2 * rate) - snr(clean, x, 0, 2 * rate), 30, "0.1 dB",
               "voice in noise of %d, gained, %d Hz", level, rate);
    }
    // Squares, alternation, impulses, a constant: each at full scale for a second.
    Signal x = square(4 * rate);
    for (size_t i = size_t(rate); i < x.size(); ++i)
        x[i] = i < size_t(2 * rate)              ? (i % 2 ? INT16_MAX : INT16_MIN)
               : i < size_t(3 * rate) && i % 997 ? 0
                                                 : INT16_MIN;
    x = joined(x, clean);
    figure(snr(x, reduce(rate, x), late, 8 * rate), 400, "0.1 dB", "voice after full scale, %d Hz", rate);
}

// Ten minutes: the last is as quiet as the second, within what other noise changes.
void ten_minutes()
{
    const Reducer anr(ANR_Create(8000, 160), ANR_Destroy);
    int minute[10];
    for (int m = 0; m < 10; ++m) {
        const Signal x = noise(60 * 8000, 1000, uint32_t(m + 1));
        minute[m] = drop(x, run(anr.get(), x, 80), 0, int(x.size()));
    }
    figure(minute[1], 300, "0.1 dB", "noise, minute 2");
    figure(-std::abs(minute[9] - minute[1]), -20, "0.1 dB", "noise, change from minute 2 to 10");
}

} // namespace

void noise_reducer()
{
    for (int rate : {8000, 16000}) {
        steady_noise(rate);
        silence(rate);
        voices_through(rate);
    }
    ten_minutes();
}

} // namespace quality
