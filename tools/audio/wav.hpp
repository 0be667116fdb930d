// WAV files of 16-bit samples, one channel.
#pragma once

#include "tools/cli/output_file.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace zaudio {

struct Sound {
    int rate = 0;
    std::vector<int16_t> samples;
};

// Throws std::runtime_error with a line that names the file. Of several channels the first is taken.
Sound read_wav(const std::string& path);
void write_wav(cli::OutputFile& to, const Sound& sound);

} // namespace zaudio
