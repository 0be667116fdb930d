// The verdict's signal, and what its recording says of the line.
#include "tools/audio/verdict.hpp"

#include <algorithm>
#include <cmath>

namespace zaudio {

namespace {

constexpr double kSilenceS = 0.5, kBurstS = 0.1, kPauseS = 0.2, kLateS = 1;
constexpr double kSettleS = 0.3; // of the tone: gain controls and codecs find their level
constexpr double kBurstLevel = -6, kToneLevel = -12;
constexpr uint32_t kFirst = 12345, kSecond = 54321; // the bursts' seeds
constexpr double kGapWindowS = 0.005;               // shorter gaps show in the tone's noise
constexpr double kGapDepth = 4;                     // below the usual amplitude, which is 12 dB
constexpr double kStretchS = 0.2;

size_t count(const TestSignal& signal, double seconds) { return size_t(seconds * signal.rate); }

double rms(std::span<const int16_t> samples)
{
    double power = 0;
    for (int16_t sample : samples) power += double(sample) * sample;
    return std::sqrt(power / double(std::max<size_t>(samples.size(), 1)));
}

std::span<const int16_t> part(std::span<const int16_t> all, size_t begin, size_t length)
{
    begin = std::min(begin, all.size());
    return all.subspan(begin, std::min(length, all.size() - begin));
}

// Samples in which the tone is not there. What a second burst says is at most the rest.
size_t gaps_of(const TestSignal& signal, std::span<const int16_t> tone)
{
    const size_t window =
        std::max<size_t>(count(signal, kGapWindowS), size_t(signal.rate / signal.frequency) + 1);
    std::vector<double> levels;
    for (size_t at = 0; at + window <= tone.size(); at += window)
        levels.push_back(rms(tone.subspan(at, window)));
    if (levels.empty()) return 0;
    std::vector<double> sorted = levels;
    std::nth_element(sorted.begin(), sorted.begin() + long(sorted.size() / 2), sorted.end());
    const double usual = sorted[sorted.size() / 2];
    return window * size_t(std::count_if(levels.begin(), levels.end(),
                                         [&](double level) { return level < usual / kGapDepth; }));
}

// A gap spoils the stretches that it is in and no others, so the middle one of all is the line's.
std::optional<Tone> usual_tone(const TestSignal& signal, std::span<const int16_t> tone)
{
    const size_t length = std::max(count(signal, kStretchS), size_t(12 * signal.rate / signal.frequency));
    std::vector<Tone> all;
    for (size_t at = 0; at + length <= tone.size(); at += length / 2)
        if (const auto one = find_tone(tone.subspan(at, length), signal.rate, signal.frequency))
            all.push_back(*one);
    if (all.empty()) return find_tone(tone, signal.rate, signal.frequency);
    std::nth_element(all.begin(), all.begin() + long(all.size() / 2), all.end(),
                     [](const Tone& a, const Tone& b) { return a.snr_db > b.snr_db; });
    return all[all.size() / 2];
}

Finding judged(const TestSignal& signal, std::span<const int16_t> tone, double underrun)
{
    Finding finding;
    const double to_ms = 1000.0 / signal.rate;
    finding.underrun_ms = underrun * to_ms;
    finding.interrupted_ms = std::max(0.0, double(gaps_of(signal, tone)) - underrun) * to_ms;
    finding.tone = usual_tone(signal, tone);
    return finding;
}

} // namespace

std::vector<int16_t> samples_of(const TestSignal& signal)
{
    std::vector<int16_t> all;
    const auto silence = [&](double seconds) { all.resize(all.size() + count(signal, seconds)); };
    const auto add = [&](const std::vector<int16_t>& more) {
        all.insert(all.end(), more.begin(), more.end());
    };
    silence(kSilenceS);
    add(make_burst(signal.rate, kBurstLevel, kBurstS, kFirst));
    silence(kPauseS);
    add(make_tone(signal.rate, signal.frequency, kToneLevel, signal.tone_s));
    silence(kPauseS);
    add(make_burst(signal.rate, kBurstLevel, kBurstS, kSecond));
    silence(kLateS);
    return all;
}

double seconds_of(const TestSignal& signal) { return double(samples_of(signal).size()) / signal.rate; }

Finding examine(const TestSignal& signal, std::span<const int16_t> recording, size_t lost)
{
    const auto burst = find_signal(recording, make_burst(signal.rate, kBurstLevel, kBurstS, kFirst));
    if (!burst) return {};
    const size_t head = count(signal, kBurstS) + count(signal, kPauseS),
                 length = count(signal, signal.tone_s);
    const size_t begin = *burst + head;
    const auto rest = part(recording, begin, recording.size());
    const auto second = find_signal(rest, make_burst(signal.rate, kBurstLevel, kBurstS, kSecond));
    const size_t wanted = length + count(signal, kPauseS);
    const double added = second ? double(*second) + double(lost) - double(wanted) : 0;
    const size_t end = second ? *second - std::min(*second, count(signal, kPauseS)) : length;
    const size_t settle = std::min(count(signal, kSettleS), end);
    // Delays change by a few samples in codecs that search; that is no under-run.
    Finding finding = judged(signal,
                             rest.subspan(std::min(settle, rest.size()),
                                          std::min(end, rest.size()) - std::min(settle, rest.size())),
                             added > 8 ? added : 0);
    finding.came_back = true;
    finding.delay_ms = (double(*burst) / signal.rate - kSilenceS) * 1000;
    return finding;
}

Finding examine_tone(const TestSignal& signal, std::span<const int16_t> recording)
{
    Finding finding =
        judged(signal, part(recording, count(signal, kSettleS), count(signal, signal.tone_s)), 0);
    finding.came_back = finding.tone.has_value();
    return finding;
}

} // namespace zaudio
