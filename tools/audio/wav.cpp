#include "tools/audio/wav.hpp"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zaudio {

namespace {

constexpr size_t kFormat = 16; // bytes of the plain format chunk

uint32_t load(const std::string& bytes, size_t at, int count)
{
    uint32_t value = 0;
    for (int i = count; i-- > 0;) value = value << 8 | uint8_t(bytes[at + size_t(i)]);
    return value;
}

void store(std::string& bytes, uint32_t value, int count)
{
    for (int i = 0; i < count; ++i) bytes.push_back(char(value >> (8 * i)));
}

// Contents of a chunk; empty when there is none.
std::string chunk(const std::string& file, const char* name)
{
    for (size_t at = 12; at + 8 <= file.size();) {
        const size_t length = load(file, at + 4, 4);
        if (file.compare(at, 4, name) == 0) return file.substr(at + 8, length);
        at += 8 + length + length % 2;
    }
    return {};
}

} // namespace

Sound read_wav(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path + ": " + strerror(errno));
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    if (file.size() < 12 || file.compare(0, 4, "RIFF") != 0 || file.compare(8, 4, "WAVE") != 0)
        throw std::runtime_error(path + ": no WAV file");
    const std::string format = chunk(file, "fmt "), data = chunk(file, "data");
    if (format.size() < kFormat || load(format, 0, 2) != 1 || load(format, 14, 2) != 16)
        throw std::runtime_error(path + ": not 16-bit PCM");
    const size_t channels = load(format, 2, 2);
    if (channels == 0) throw std::runtime_error(path + ": no channels");
    Sound sound{int(load(format, 4, 4)), {}};
    for (size_t at = 0; at + 2 * channels <= data.size(); at += 2 * channels)
        sound.samples.push_back(int16_t(load(data, at, 2)));
    return sound;
}

void write_wav(const std::string& path, const Sound& sound)
{
    const auto bytes = uint32_t(sound.samples.size() * 2);
    std::string file = "RIFF";
    store(file, 36 + bytes, 4);
    file += "WAVEfmt ";
    store(file, kFormat, 4);
    store(file, 1, 2); // PCM
    store(file, 1, 2); // channel
    store(file, uint32_t(sound.rate), 4);
    store(file, uint32_t(sound.rate) * 2, 4);
    store(file, 2, 2);
    store(file, 16, 2);
    file += "data";
    store(file, bytes, 4);
    for (int16_t sample : sound.samples) store(file, uint16_t(sample), 2);
    std::ofstream out(path, std::ios::binary);
    out << file;
    if (!out.flush()) throw std::runtime_error(path + ": " + strerror(errno));
}

} // namespace zaudio
