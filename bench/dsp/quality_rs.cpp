// The resamplers' response, measured with tones through 16-bit input and output.
#include "bench/dsp/quality.hpp"

#include "mpi/audio/resampler.h"

#include <complex>
#include <memory>

using namespace voices;

namespace quality {

namespace {

struct Ratio {
    int kind, up, down;
    double delay; // periods of the lower rate
    int (*process)(RESAMPLER_S*, const int16_t*, int, int16_t*);
};

constexpr Ratio kRatios[] = {{RESAMPLER_1X2, 2, 1, 31.5, ResamplerMono1X2Process},
                             {RESAMPLER_2X1, 1, 2, 31, ResamplerMono2X1Process},
                             {RESAMPLER_1X4, 4, 1, 31.75, ResamplerMono1X4Process},
                             {RESAMPLER_4X1, 1, 4, 32, ResamplerMono4X1Process},
                             {RESAMPLER_1X6, 6, 1, 32 - 1 / 6., ResamplerMono1X6Process},
                             {RESAMPLER_6X1, 1, 6, 32 - 1 / 3., ResamplerMono6X1Process}};

Signal convert(const Ratio& r, const Signal& x)
{
    const std::unique_ptr<RESAMPLER_S, decltype(&ResamplerDestroy)> handle(ResamplerCreate(r.kind, 8000),
                                                                           ResamplerDestroy);
    Signal y(x.size() * size_t(r.up) / size_t(r.down));
    const size_t frame = 240;
    for (size_t at = 0, to = 0; at < x.size(); at += frame)
        to += size_t(r.process(handle.get(), &x[at], int(std::min(frame, x.size() - at)), &y[to]));
    return y;
}

// A tone is given by its cycles in kSpan periods of the lower rate. The first kSettle periods are left out: the
// filters settle in them.
constexpr int kSpan = 1000, kSettle = 100;

Signal tone(const Ratio& r, int cycles, double amplitude)
{
    const double w = 2 * M_PI * cycles / kSpan / r.down;
    Signal x(size_t((kSpan + kSettle) * r.down));
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = int16_t(lrint(amplitude * sin(w * (double(i) - kSettle * r.down))));
    const Signal y = convert(r, x);
    return {y.begin() + kSettle * r.up, y.end()};
}

std::complex<double> component(const Signal& y, const Ratio& r, int cycles)
{
    std::complex<double> sum = 0;
    for (size_t i = 0; i < y.size(); ++i)
        sum += double(y[i]) * std::polar(1., -2 * M_PI * cycles / kSpan / r.up * double(i));
    return sum * 2. / double(y.size());
}

struct Tone {
    double gain_db, lag, rest_db, all_db; // lag in periods of the lower rate; levels re the input tone
};

Tone measure(const Ratio& r, int cycles, double amplitude)
{
    const Signal y = tone(r, cycles, amplitude);
    const auto c = component(y, r, cycles) * std::complex<double>(0, 1); // of a sine
    const double all = power(y, 0, y.size()) / double(y.size()), in = amplitude * amplitude / 2;
    const auto db = [&](double p) { return 10 * log10(std::max(p, 1e-9) / in); };
    return {db(std::norm(c) / 2), -std::arg(c) * kSpan / (2 * M_PI * cycles), db(all - std::norm(c) / 2),
            db(all)};
}

// Gain, phase and what is not the tone: images, and the rounding of 16 bits.
void pass_band(const Ratio& r)
{
    double ripple = 0, slip = 0, rest = -200, rest_loud = -200;
    for (int cycles : {7, 101, 211, 307, 379, 401, 421, 433, 450}) {
        const Tone t = measure(r, cycles, 16000);
        const double periods = (t.lag - r.delay) * cycles / kSpan;
        ripple = std::max(ripple, std::abs(t.gain_db));
        slip = std::max(slip, std::abs(periods - std::round(periods)));
        rest = std::max(rest, t.rest_db);
    }
    for (int cycles : {41, 127, 373}) rest_loud = std::max(rest_loud, measure(r, cycles, 29000).rest_db);
    figure(-int(std::ceil(ripple * 10000)), -5, "0.0001 dB", "resampler %d, ripple to 0.45 of the rate",
           r.kind);
    figure(-int(std::ceil(slip * 1e6)), -10, "ppm", "resampler %d, phase, of a cycle", r.kind);
    figure(int(-10 * rest), 880, "0.1 dB", "resampler %d, above all but the tone", r.kind);
    figure(int(-10 * rest_loud), 940, "0.1 dB", "resampler %d, the same of a loud tone", r.kind);
}

void stop_band(const Ratio& r)
{
    double worst = -200;
    for (int cycles = 550; cycles < 500 * r.down; cycles += 75)
        worst = std::max(worst, measure(r, cycles, 29000).all_db);
    if (r.down > 1) figure(int(-10 * worst), 880, "0.1 dB", "resampler %d, what would fold", r.kind);
    worst = -200;
    for (int cycles : {460, 475, 490}) {
        const Signal y = tone(r, cycles, 29000);
        for (int image = 2 * kSpan - cycles; image < kSpan * r.up / 2; image += kSpan)
            worst = std::max(worst, 20 * log10(std::abs(component(y, r, image)) / 29000));
    }
    if (r.up > 2) figure(int(-10 * worst), 850, "0.1 dB", "resampler %d, images of the edge", r.kind);
}

// A square wave overshoots once its harmonics are cut: its plateaus are limited and keep their sign.
void full_scale(const Ratio& r)
{
    const int half = 50 * r.down, plateau = 50 * r.up, lag = int(lround(r.delay * r.up));
    Signal x(size_t(20 * half));
    for (size_t i = 0; i < x.size(); ++i) x[i] = int(i) / half % 2 ? INT16_MIN : INT16_MAX;
    const Signal y = convert(r, x);
    int least = INT16_MAX;
    for (int i = plateau; i + lag < int(y.size()); ++i) {
        const int from_edge = i % plateau, value = y[size_t(i + lag)];
        if (std::min(from_edge, plateau - from_edge) > 2 * r.up)
            least = std::min(least, i / plateau % 2 ? -value : value);
    }
    figure(least, 27000, "", "resampler %d, plateau of a full-scale square", r.kind);
}

// Constants pass unchanged, and silence follows a signal within the delay.
void constants(const Ratio& r)
{
    int wrong = 0;
    for (int level : {0, 1, -1, 12345, INT16_MAX, INT16_MIN}) {
        const Signal x = joined(noise(240 * r.down, 20000), Signal(size_t(240 * r.down), int16_t(level)));
        const Signal y = convert(r, x), expected(y.size(), int16_t(level));
        wrong += changed(expected, y, size_t(310 * r.up));
    }
    figure(-wrong, 0, "samples", "resampler %d, constants", r.kind);
}

} // namespace

void resamplers()
{
    for (const Ratio& r : kRatios) {
        pass_band(r);
        stop_band(r);
        full_scale(r);
        constants(r);
    }
}

} // namespace quality
