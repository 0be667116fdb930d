// What a recording holds: level, tone, delay.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zaudio {

// dB below a sine wave at full scale; -120 for silence.
double level_db(std::span<const int16_t> samples);

struct Tone {
    double frequency; // Hz, found within 2 % of the one looked for
    double level_db;  // of the tone alone
    double snr_db;    // tone to everything else but the mean
};
// Nothing for fewer samples than ten periods.
std::optional<Tone> find_tone(std::span<const int16_t> samples, int rate, double frequency);

std::vector<int16_t> make_tone(int rate, double frequency, double level, double seconds);
// A burst of noise that is found again in a recording: the same for a rate and a seed every time.
std::vector<int16_t> make_burst(int rate, double level, double seconds, uint32_t seed);
// Where in a recording a signal begins, in samples; nothing when it is not in there.
std::optional<size_t> find_signal(std::span<const int16_t> recording, std::span<const int16_t> signal);

// A line for a terminal of that many columns, which it does not fill: time, level, the highest sample so far, a bar.
std::string meter_line(double seconds, double level, double peak, size_t columns);

} // namespace zaudio
