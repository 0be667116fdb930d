// Time, levels and attributes.
#include "sim/models/audio.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace vcam::media {

Ns time_of(int64_t samples, uint32_t rate)
{
    return samples / rate * clock::kSecond + (samples % rate * clock::kSecond + rate - 1) / rate;
}

int64_t samples_in(Ns time, uint32_t rate)
{
    if (time < 0) return -samples_in(-time + clock::kSecond / rate - 1, rate);
    return time / clock::kSecond * rate + time % clock::kSecond * rate / clock::kSecond;
}

void measure(Level& level, std::span<const int16_t> samples)
{
    int peak = 0;
    double sum = 0;
    for (int sample : samples) {
        peak = std::max(peak, std::abs(sample));
        sum += double(sample) * sample;
    }
    level.peak = uint32_t(peak);
    level.rms = samples.empty() ? 0 : uint32_t(std::sqrt(sum / double(samples.size())));
    level.highest = std::max(level.highest, level.peak);
}

bool valid(const Attributes& a)
{
    constexpr uint32_t kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    return std::find(std::begin(kRates), std::end(kRates), a.rate) != std::end(kRates) && a.bit_width <= 1 &&
           a.work_mode <= 3 && a.sound_mode <= kStereo && a.frames >= 2 && a.frames <= kMaxFrames &&
           a.points >= 1 && a.points <= kMaxPoints && a.channels >= 1 && a.channels <= kChannels;
}

} // namespace vcam::media
