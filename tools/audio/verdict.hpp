// The verdict's signal, and what its recording says of the line.
#pragma once

#include "tools/audio/analysis.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zaudio {

struct TestSignal {
    int rate;
    double frequency, tone_s;
};

// Silence, a burst, a pause, the tone of -12 dB, a pause, another burst, and silence while what is late comes in.
std::vector<int16_t> samples_of(const TestSignal& signal);
double seconds_of(const TestSignal& signal);

/**
 * The bursts tell what the line did from what the sound's way to the camera did: an output that ran dry adds silence,
 * so the second burst comes as much later; a line that breaks adds no time.
 */
struct Finding {
    bool came_back = false;    // the first burst was found
    double delay_ms = 0;       // of the way from the output to the input
    double underrun_ms = 0;    // silence that the camera's output had to put in
    double interrupted_ms = 0; // gaps in the tone that are none of that
    std::optional<Tone> tone;  // of the middle one of many short stretches
};

// lost: samples that are missing in the recording, because the camera's input lost their frames.
Finding examine(const TestSignal& signal, std::span<const int16_t> recording, size_t lost);
// The same for a tone from elsewhere, which has no bursts.
Finding examine_tone(const TestSignal& signal, std::span<const int16_t> recording);

} // namespace zaudio
