// Sound files: any that libsndfile reads, and WAV files of 16-bit samples to write.
#pragma once

#include "tools/cli/output_file.hpp"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace zaudio {

struct Sound {
    int rate = 0;
    std::vector<int16_t> samples; // of several channels interleaved
    int channels = 1;
};

// Throw std::runtime_error with a line that names the file. Other samples than of 16 bits are rounded.
Sound read_sound(const std::string& path);
Sound read_wav(const std::string& path); // of several channels the first

// Where a WAV, AU or AIFF file should end by its header; 0 when that does not say. The stream stands at its first byte.
uintmax_t promised_end(std::istream& file);

std::string wav_bytes(const Sound& sound);
void write_wav(cli::OutputFile& to, const Sound& sound);

// The same sound of one channel at another rate.
Sound at_rate(const Sound& sound, int rate);

} // namespace zaudio
