// Level, tone and delay of recordings.
#include "tools/audio/analysis.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <random>

namespace zaudio {

namespace {

constexpr double kFullScale = 32767;
constexpr double kSilence = -120;
constexpr double kLikeness = 0.25; // correlation from which a signal counts as found

double decibel(double power_ratio) { return power_ratio > 1e-12 ? 10 * std::log10(power_ratio) : kSilence; }

double mean_of(std::span<const int16_t> samples)
{
    double sum = 0;
    for (int16_t sample : samples) sum += sample;
    return samples.empty() ? 0 : sum / double(samples.size());
}

// The turning component of a frequency, as amplitude and phase; a window keeps neighbours out.
std::complex<double> component(std::span<const int16_t> samples, double mean, double radians)
{
    std::complex<double> sum = 0;
    double weight = 0;
    const double step = 2 * M_PI / double(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        const double window = 0.5 - 0.5 * std::cos(step * (double(i) + 0.5));
        sum += window * (samples[i] - mean) * std::polar(1.0, -radians * double(i));
        weight += window;
    }
    return 2.0 * sum / weight;
}

// The best sine of a frequency in the least-squares sense, and what is left of the signal's power without it.
struct Fit {
    double tone_power, rest_power;
};
Fit fit_sine(std::span<const int16_t> samples, double mean, double radians)
{
    double cc = 0, ss = 0, cs = 0, xc = 0, xs = 0, power = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double c = std::cos(radians * double(i)), s = std::sin(radians * double(i)),
                     x = samples[i] - mean;
        cc += c * c;
        ss += s * s;
        cs += c * s;
        xc += x * c;
        xs += x * s;
        power += x * x;
    }
    const double det = cc * ss - cs * cs;
    const double a = (xc * ss - xs * cs) / det, b = (xs * cc - xc * cs) / det;
    const double explained = a * xc + b * xs;
    const auto count = double(samples.size());
    return {explained / count, std::max(power - explained, 0.0) / count};
}

} // namespace

double level_db(std::span<const int16_t> samples)
{
    double power = 0;
    for (int16_t sample : samples) power += double(sample) * sample;
    if (samples.empty()) return kSilence;
    return decibel(power / double(samples.size()) / (kFullScale * kFullScale / 2));
}

std::optional<Tone> find_tone(std::span<const int16_t> samples, int rate, double frequency)
{
    if (double(samples.size()) < 10 * rate / frequency) return {};
    const double mean = mean_of(samples);
    double radians = 2 * M_PI * frequency / rate;
    // Coarse: the strongest of evenly spaced frequencies, a quarter of the length's resolution apart.
    const double reach = 0.02 * radians, tooth = 2 * M_PI / double(samples.size()) / 4;
    double best = -1, found = radians;
    const long teeth = std::lround(2 * reach / tooth);
    for (long i = 0; i <= teeth; ++i) {
        const double at = radians - reach + double(i) * tooth;
        const double strength = std::abs(component(samples, mean, at));
        if (strength <= best) continue;
        best = strength;
        found = at;
    }
    // Fine: how far the phase turns from the first half to the second.
    const size_t half = samples.size() / 2;
    const auto first = component(samples.first(half), mean, found);
    const auto second =
        component(samples.subspan(half, half), mean, found) * std::polar(1.0, -found * double(half));
    radians = found + std::arg(second / first) / double(half);
    const Fit fit = fit_sine(samples, mean, radians);
    return Tone{radians * rate / (2 * M_PI), decibel(fit.tone_power / (kFullScale * kFullScale / 2)),
                decibel(fit.tone_power / std::max(fit.rest_power, 1e-6))};
}

std::vector<int16_t> make_tone(int rate, double frequency, double level, double seconds)
{
    std::vector<int16_t> samples(size_t(seconds * rate));
    const double amplitude = kFullScale * std::pow(10, level / 20);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = int16_t(std::lround(amplitude * std::sin(2 * M_PI * frequency * double(i) / rate)));
    return samples;
}

std::vector<int16_t> make_burst(int rate, double level, double seconds, uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<int16_t> samples(size_t(seconds * rate));
    const double amplitude = kFullScale * std::pow(10, level / 20);
    // Each value is held for two samples: every codec keeps the lower half of the band.
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] =
            i % 2 ? samples[i - 1] : int16_t(amplitude * double(int64_t(random() % 20001) - 10000) / 10000);
    return samples;
}

std::optional<size_t> find_signal(std::span<const int16_t> recording, std::span<const int16_t> signal)
{
    if (signal.empty() || recording.size() < signal.size()) return {};
    double own = 0;
    for (int16_t sample : signal) own += double(sample) * sample;
    double best = 0, power = 0;
    size_t found = 0;
    for (size_t i = 0; i < signal.size(); ++i) power += double(recording[i]) * recording[i];
    for (size_t at = 0; at + signal.size() <= recording.size(); ++at) {
        double product = 0;
        for (size_t i = 0; i < signal.size(); ++i) product += double(recording[at + i]) * signal[i];
        const double likeness = power > 0 ? product / std::sqrt(power * own) : 0;
        if (likeness > best) {
            best = likeness;
            found = at;
        }
        if (at + signal.size() == recording.size()) break;
        const double gone = recording[at], come = recording[at + signal.size()];
        power += come * come - gone * gone;
    }
    return best > kLikeness ? std::optional(found) : std::nullopt;
}

std::string meter_line(double seconds, double level, double peak, size_t columns)
{
    constexpr double kRange = 60; // dB that the bar shows
    char text[64];
    snprintf(text, sizeof text, "%2d:%04.1f %6.1f dB, peak %6.1f dB ", int(seconds) / 60,
             std::fmod(seconds, 60), level, peak);
    std::string line = text;
    const size_t room = columns > line.size() + 1 ? columns - line.size() - 1 : 0;
    const auto bar = size_t(std::clamp((level + kRange) / kRange, 0.0, 1.0) * double(room));
    line += std::string(bar, '#') + std::string(room - bar, '.');
    line.resize(std::min(line.size(), columns > 1 ? columns - 1 : 1));
    return line;
}

} // namespace zaudio
