// Reading and writing WAV files.
#include "tools/audio/wav.hpp"

#include "common/base/bytes.hpp"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zaudio {

namespace {

using zep::append_le16, zep::append_le32, zep::load_le16, zep::load_le32;

constexpr size_t kFormat = 16; // bytes of the plain format chunk

// Contents of a chunk; empty when there is none.
std::string chunk(const std::string& file, const char* name)
{
    for (size_t at = 12; at + 8 <= file.size();) {
        const size_t length = load_le32(&file[at + 4]);
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
    if (format.size() < kFormat || load_le16(&format[0]) != 1 || load_le16(&format[14]) != 16)
        throw std::runtime_error(path + ": not 16-bit PCM");
    const size_t channels = load_le16(&format[2]);
    if (channels == 0) throw std::runtime_error(path + ": no channels");
    Sound sound{int(load_le32(&format[4])), {}};
    for (size_t at = 0; at + 2 * channels <= data.size(); at += 2 * channels)
        sound.samples.push_back(int16_t(load_le16(&data[at])));
    return sound;
}

void write_wav(cli::OutputFile& to, const Sound& sound)
{
    const auto bytes = uint32_t(sound.samples.size() * 2);
    std::string file = "RIFF";
    append_le32(file, 36 + bytes);
    file += "WAVEfmt ";
    append_le32(file, kFormat);
    append_le16(file, 1); // PCM
    append_le16(file, 1); // channel
    append_le32(file, uint32_t(sound.rate));
    append_le32(file, uint32_t(sound.rate) * 2);
    append_le16(file, 2);
    append_le16(file, 16);
    file += "data";
    append_le32(file, bytes);
    for (int16_t sample : sound.samples) append_le16(file, uint16_t(sample));
    to.write(file);
    to.commit();
}

} // namespace zaudio
