// Sound files, read and written by libsndfile; rates are converted by libsoxr.
#include "tools/audio/wav.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sndfile.h>
#include <soxr.h>
#include <stdexcept>
#include <string_view>

namespace zaudio {

namespace {

using File = std::unique_ptr<SNDFILE, decltype(&sf_close)>;

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error(path + ": " + reason);
}

int16_t rounded(double sample) { return int16_t(std::clamp(std::lround(sample * 32768), -32768L, 32767L)); }

// A file in memory, as the library writes it.
struct Memory {
    std::string bytes;
    size_t at = 0;
};

Memory& memory(void* user) { return *static_cast<Memory*>(user); }

sf_count_t length(void* user) { return sf_count_t(memory(user).bytes.size()); }
sf_count_t tell(void* user) { return sf_count_t(memory(user).at); }
sf_count_t seek(sf_count_t offset, int whence, void* user)
{
    const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? tell(user) : length(user);
    memory(user).at = size_t(from + offset);
    return tell(user);
}
sf_count_t read(void* to, sf_count_t count, void* user)
{
    Memory& m = memory(user);
    const size_t n = m.at < m.bytes.size() ? std::min(size_t(count), m.bytes.size() - m.at) : 0;
    memcpy(to, m.bytes.data() + m.at, n);
    m.at += n;
    return sf_count_t(n);
}
sf_count_t write(const void* from, sf_count_t count, void* user)
{
    Memory& m = memory(user);
    m.bytes.resize(std::max(m.bytes.size(), m.at + size_t(count)));
    memcpy(&m.bytes[m.at], from, size_t(count));
    m.at += size_t(count);
    return count;
}

uint32_t number(const char* from, bool little)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | uint8_t(from[little ? 3 - i : i]);
    return value;
}

constexpr uint32_t kUnknown = 0x7FFF0000; // sizes from here on: the writer could not know, as into a pipe

// Where the samples of a WAV file should end; 0 when its header does not say. The size of the whole is often wrong by
// the 8 bytes of its own header and is not used.
uintmax_t end_of_wav(std::istream& file)
{
    std::array<char, 8> chunk = {};
    for (uintmax_t at = 12; file.seekg(std::streamoff(at)) && file.read(chunk.data(), chunk.size());) {
        const uint32_t size = number(chunk.data() + 4, true);
        at += chunk.size() + size;
        if (std::string_view(chunk.data(), 4) == "data") return size < kUnknown ? at : 0;
        at += size % 2; // chunks begin at even places
    }
    return 0;
}

// The library takes a file for as long as it is, whatever its header promises.
void refuse_cut_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const uintmax_t there = std::filesystem::file_size(path), promised = promised_end(file);
    if (there < promised)
        fail(path, "is cut short: it has " + std::to_string(there) + " of the " + std::to_string(promised) +
                       " bytes that its header promises");
}

} // namespace

uintmax_t promised_end(std::istream& file)
{
    std::array<char, 12> head = {};
    if (!file.read(head.data(), head.size())) return 0;
    const std::string_view kind(head.data(), 4);
    if (kind == "RIFF") return end_of_wav(file);
    const bool snd = kind == ".snd"; // AU, whose samples begin where the header says
    const uint32_t size = number(&head[snd ? 8 : 4], false);
    if ((!snd && kind != "FORM") || size >= kUnknown) return 0;
    return uintmax_t(size) + (snd ? number(&head[4], false) : 8);
}

Sound read_sound(const std::string& path)
{
    // A pipe or a device has no end that could be waited for.
    if (std::filesystem::exists(path) && !std::filesystem::is_regular_file(path))
        fail(path, "is not a regular file");
    SF_INFO info = {};
    const File file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    if (!file && !std::filesystem::exists(path)) fail(path, strerror(ENOENT));
    if (!file) fail(path, std::string("is no sound file: ") + sf_strerror(nullptr));
    if (info.samplerate <= 0 || info.channels <= 0) fail(path, "has no samples");
    refuse_cut_file(path);
    Sound sound{info.samplerate, {}, info.channels};
    std::vector<double> piece(size_t(4096 * info.channels));
    while (const sf_count_t n = sf_readf_double(file.get(), piece.data(), 4096))
        std::transform(piece.begin(), piece.begin() + long(n * info.channels),
                       std::back_inserter(sound.samples), rounded);
    const size_t frames = sound.samples.size() / size_t(info.channels);
    if (info.frames < SF_COUNT_MAX && frames < size_t(info.frames))
        fail(path, "is cut short: " + std::to_string(frames) + " of " + std::to_string(info.frames) +
                       " points can be read");
    return sound;
}

Sound read_wav(const std::string& path)
{
    Sound sound = read_sound(path);
    const auto step = size_t(sound.channels);
    for (size_t i = 0; i * step < sound.samples.size(); ++i) sound.samples[i] = sound.samples[i * step];
    sound.samples.resize(sound.samples.size() / step);
    sound.channels = 1;
    return sound;
}

std::string wav_bytes(const Sound& sound)
{
    Memory memory;
    SF_VIRTUAL_IO calls = {length, seek, read, write, tell};
    SF_INFO info = {};
    info.samplerate = sound.rate;
    info.channels = sound.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    File file(sf_open_virtual(&calls, SFM_WRITE, &info, &memory), sf_close);
    const auto count = sf_count_t(sound.samples.size());
    if (!file || sf_write_short(file.get(), sound.samples.data(), count) != count)
        throw std::runtime_error(std::string("no WAV file can be made: ") + sf_strerror(file.get()));
    file.reset();
    return memory.bytes;
}

void write_wav(cli::OutputFile& to, const Sound& sound)
{
    to.write(wav_bytes(sound));
    to.commit();
}

Sound at_rate(const Sound& sound, int rate)
{
    if (rate == sound.rate) return sound;
    Sound out{rate, std::vector<int16_t>(size_t(double(sound.samples.size()) * rate / sound.rate + 1))};
    soxr_io_spec_t samples = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    samples.flags = SOXR_NO_DITHER; // the same file gives the same sound
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    size_t taken = 0, made = 0;
    if (const char* error =
            soxr_oneshot(sound.rate, rate, 1, sound.samples.data(), sound.samples.size(), &taken,
                         out.samples.data(), out.samples.size(), &made, &samples, &quality, nullptr))
        throw std::runtime_error("the sample rate cannot be converted: " + std::string(error));
    out.samples.resize(made);
    return out;
}

} // namespace zaudio
