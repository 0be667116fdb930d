// One session with a camera: sound to it, sound from it, at the pace of sound.
#pragma once

#include "tools/audio/link.hpp"
#include "tools/audio/wav.hpp"

#include <functional>
#include <optional>

namespace zaudio {

struct Options {
    std::string host, port;
    std::vector<std::string> files;
    int32_t type = 19; // payload type
    const char* codec = "g711a";
    std::optional<int> rate; // 8000, or that of the file to be played
    double seconds = 5;
    double frequency = 1000;
    double level_min = -40, level_max = 0, snr_min = 20; // dB
    int mic_in = 1, mic_volume = 15, adc_volume = 0, dac_volume = 0;
    int limit_s = 10; // for the connection and each answer
    bool meter = false;
    bool force = false;  // replace an output that is no WAV file
    bool listen = false; // the tone comes from elsewhere
};

struct Job {
    bool encode = true; // the camera sends
    std::vector<int16_t> to_play;
    double record_s = 0;
};

struct Report {
    Sound recorded;
    uint32_t lost = 0; // frames of the camera's input that are missing in their numbers
    Status status;     // the camera's at the end
    Clock::duration round_trip{};

    // Whether the camera's output took all that was sent.
    [[nodiscard]] bool heard() const { return status.dropped + status.damaged + status.unheard == 0; }
};

// Throws std::runtime_error.
Report run_session(const Options& options, int rate, const Job& job);

} // namespace zaudio
