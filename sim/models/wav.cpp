// Reading and writing 16-bit WAV files.
#include "sim/models/wav.hpp"
#include "sim/base/raw.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vcam::wav {
namespace {

constexpr uint64_t kMostBytes = UINT32_MAX - kHeader; // of samples: the header's sizes have 32 bits
constexpr uint16_t kPcm = 1, kExtensible = 0xFFFE;
constexpr int kCrossings = 16; // of the interpolation's sinc, to each side

struct Header {
    char riff[4] = {'R', 'I', 'F', 'F'};
    uint32_t file_size = 0;
    char wave[4] = {'W', 'A', 'V', 'E'}, fmt[4] = {'f', 'm', 't', ' '};
    uint32_t fmt_size = 16;
    uint16_t kind = kPcm, channels = 0;
    uint32_t rate = 0, bytes_per_second = 0;
    uint16_t block = 0, bits = 16;
    char data[4] = {'d', 'a', 't', 'a'};
    uint32_t data_size = 0;
};
static_assert(sizeof(Header) == kHeader);

template<class T> T load(const uint8_t* from)
{
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

uint64_t stamp_of(const std::string& path)
{
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return 0;
    return uint64_t(st.st_ino) * 31 + uint64_t(st.st_size) * 7 + uint64_t(st.st_mtim.tv_sec) * 1'000'003 +
           uint64_t(st.st_mtim.tv_nsec) + 1;
}

// The sizes in the header are those of the file's end.
bool finish(int fd, uint32_t bytes)
{
    const uint32_t file_size = bytes + kHeader - 8;
    return raw::pwrite_all(fd, &bytes, sizeof bytes, kHeader - 4) &&
           raw::pwrite_all(fd, &file_size, sizeof file_size, 4);
}

// Weight of a file sample at distance x (in file samples) from the wanted point; `band` is the part of the
// file's band that the output can carry.
double weight(double x, double band)
{
    const double t = x * band / kCrossings;
    if (std::abs(t) >= 1) return 0;
    const double window = 0.42 + 0.5 * std::cos(M_PI * t) + 0.08 * std::cos(2 * M_PI * t);
    return x == 0 ? window : window * std::sin(M_PI * x * band) / (M_PI * x * band);
}

int16_t interpolate(const Reader& file, uint32_t channel, double at, double band)
{
    const double reach = kCrossings / band;
    double sum = 0, weights = 0;
    for (auto i = int64_t(std::ceil(at - reach)); double(i) <= at + reach; ++i) {
        const double w = weight(double(i) - at, band);
        sum += w * file.at(i, channel);
        weights += w;
    }
    return int16_t(std::clamp(std::lround(sum / weights), -32768L, 32767L));
}

} // namespace

Reader::Reader(const std::string& path) : path_(path), stamp_(stamp_of(path))
{
    error_ = raw::read_file(path, bytes_);
    if (error_.empty()) error_ = parse();
    if (!error_.empty()) points_ = 0;
}

Reader::Reader(const std::string& path, std::vector<uint8_t> bytes) : path_(path), bytes_(std::move(bytes))
{
    error_ = parse();
}

bool Reader::current() const { return stamp_of(path_) == stamp_; }

std::string Reader::parse()
{
    const uint8_t* file = bytes_.data();
    if (bytes_.size() < 12 || memcmp(file, "RIFF", 4) != 0 || memcmp(file + 8, "WAVE", 4) != 0)
        return path_ + ": no WAV file";
    for (size_t at = 12; at + 8 <= bytes_.size();) {
        const uint8_t* chunk = file + at;
        const size_t size = std::min<size_t>(load<uint32_t>(chunk + 4), bytes_.size() - at - 8);
        if (memcmp(chunk, "fmt ", 4) == 0 && size >= 16) {
            const auto kind = load<uint16_t>(chunk + 8);
            channels_ = load<uint16_t>(chunk + 10);
            rate_ = load<uint32_t>(chunk + 12);
            if ((kind != kPcm && kind != kExtensible) || load<uint16_t>(chunk + 22) != 16 || !channels_ ||
                !rate_)
                return path_ + ": samples are not linear, of 16 bits";
        }
        if (memcmp(chunk, "data", 4) == 0 && channels_) {
            samples_ = reinterpret_cast<const int16_t*>(chunk + 8);
            points_ = int64_t(size / 2 / channels_);
            return {};
        }
        at += 8 + size + (size & 1);
    }
    return path_ + ": no samples";
}

void resample(const Reader& file, uint32_t channel, uint32_t rate, int64_t first, std::span<int16_t> out)
{
    if (file.points() == 0) return std::fill(out.begin(), out.end(), int16_t(0));
    const uint32_t source = channel % file.channels();
    if (file.rate() == rate) {
        for (size_t i = 0; i < out.size(); ++i) out[i] = int16_t(file.at(first + int64_t(i), source));
        return;
    }
    const double step = double(file.rate()) / rate, band = std::min(1.0, 1 / step);
    if (double(first) * step - kCrossings / band >= double(file.points()))
        return std::fill(out.begin(), out.end(), int16_t(0));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = interpolate(file, source, double(first + int64_t(i)) * step, band);
}

bool create(const std::string& path, uint32_t rate, uint32_t channels)
{
    const raw::Fd fd(raw::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    Header header;
    header.file_size = kHeader - 8;
    header.channels = uint16_t(channels);
    header.rate = rate;
    header.block = uint16_t(2 * channels);
    header.bytes_per_second = rate * 2 * channels;
    return fd && raw::write_all(fd.get(), &header, sizeof header);
}

bool put(const std::string& path, uint32_t channels, uint32_t point, std::span<const int16_t> samples)
{
    const raw::Fd fd(raw::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const uint64_t begin = uint64_t(point) * 2 * channels, end = begin + samples.size_bytes();
    return fd && end <= kMostBytes &&
           raw::pwrite_all(fd.get(), samples.data(), samples.size_bytes(), int64_t(kHeader + begin)) &&
           finish(fd.get(), uint32_t(end));
}

bool truncate(const std::string& path, uint32_t channels, uint32_t points)
{
    const raw::Fd fd(raw::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const uint64_t bytes = uint64_t(points) * 2 * channels;
    return fd && bytes <= kMostBytes && ::ftruncate64(fd.get(), int64_t(kHeader + bytes)) == 0 &&
           finish(fd.get(), uint32_t(bytes));
}

void get(const std::string& path, uint32_t channels, int64_t point, std::span<int16_t> out)
{
    const raw::Fd fd(raw::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<int16_t> whole(out.size() * channels);
    const ssize_t n =
        fd ? raw::pread(fd.get(), whole.data(), whole.size() * 2, kHeader + point * 2 * channels) : 0;
    for (size_t i = 0; i < out.size() && ssize_t((i + 1) * 2 * channels) <= n; ++i)
        out[i] = whole[i * channels];
}

} // namespace vcam::wav
