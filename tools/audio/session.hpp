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
    int wait_s = 0;   // for a camera that does not listen yet
    bool meter = false;
    bool force = false;  // replace an output that is no WAV file
    bool listen = false; // the tone comes from elsewhere
    bool json = false;
};

struct Job {
    bool encode = true; // the camera sends
    std::vector<int16_t> to_play;
    double record_s = 0;
};

struct Report {
    Sound recorded;
    uint32_t lost = 0;   // frames of the camera's input that are missing in their numbers
    uint32_t points = 0; // of a frame
    Status status;       // the camera's at the end
    Clock::duration round_trip{};
    std::string broken; // why the session ended before its time, with sound that had come by then; else ""
    Clock::duration late{}; // that frames were sent after the time at which they should have played

    // Whether the camera's output took all that was sent.
    [[nodiscard]] bool heard() const { return status.dropped + status.damaged + status.unheard == 0; }
};

// From now on SIGINT, SIGTERM and SIGHUP end the session: what was recorded by then is its report.
void end_session_on_signals();

// Throws std::runtime_error, unless sound has come by then: that is in the report, with the reason in `broken`. A
// session that sends late records as much longer.
Report run_session(const Options& options, int rate, const Job& job);

} // namespace zaudio
