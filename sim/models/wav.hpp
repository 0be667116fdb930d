// 16-bit sound files: what the microphone hears and what the speaker says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vcam::wav {

constexpr uint32_t kHeader = 44; // bytes of the header that create() writes; the samples follow

// A file with samples of 16 bits, read whole: whoever cuts it short meanwhile takes nothing away. Empty when
// there is none or it is of another kind.
class Reader {
public:
    explicit Reader(const std::string& path);
    // The file's bytes, already read; the path is for messages.
    Reader(const std::string& path, std::vector<uint8_t> bytes);
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    [[nodiscard]] uint32_t rate() const { return rate_; }
    [[nodiscard]] uint32_t channels() const { return channels_; }
    [[nodiscard]] int64_t points() const { return points_; }
    // Sample of a channel; silence outside.
    [[nodiscard]] int at(int64_t point, uint32_t channel) const
    {
        return point < 0 || point >= points_ ? 0 : samples_[point * channels_ + channel];
    }
    // "" or why it cannot be used.
    [[nodiscard]] const std::string& error() const { return error_; }
    // Whether the file behind the path is still this one.
    [[nodiscard]] bool current() const;

private:
    std::string path_, error_;
    uint64_t stamp_ = 0;
    std::vector<uint8_t> bytes_;
    const int16_t* samples_ = nullptr;
    uint32_t rate_ = 0, channels_ = 0;
    int64_t points_ = 0;

    std::string parse();
};

// `points` samples from `first` on of what a device of `rate` takes from the file, on one of its channels.
// At the file's own rate they are the file's samples; else they are interpolated, band-limited.
void resample(const Reader& file, uint32_t channel, uint32_t rate, int64_t first, std::span<int16_t> out);

// Makes the file anew, without samples. False with errno.
bool create(const std::string& path, uint32_t rate, uint32_t channels);
// Writes samples (of all channels) behind `point`; the file then ends with them. False, and nothing is
// written, where the header could not tell the file's size.
bool put(const std::string& path, uint32_t channels, uint32_t point, std::span<const int16_t> samples);
bool truncate(const std::string& path, uint32_t channels, uint32_t points);
// Reads points of the first channel; what the file does not have stays as it is.
void get(const std::string& path, uint32_t channels, int64_t point, std::span<int16_t> out);

} // namespace vcam::wav
