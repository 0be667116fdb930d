// The chip's registers in their sparse file.
#include "sim/board/registers.hpp"
#include "sim/clock/clock.hpp"
#include "sim/board/pins.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

namespace vcam::registers {
namespace {

constexpr int64_t kPage = 4096;

// The register file, locked against other processes while this lives.
class File {
public:
    explicit File(int flags) : fd_(raw::open(state::path("registers").c_str(), flags | O_CLOEXEC, 0644))
    {
        if (fd_) raw::flock(fd_.get(), LOCK_EX);
    }
    explicit operator bool() const { return bool(fd_); }
    [[nodiscard]] int fd() const { return fd_.get(); }
    // The words are little-endian, like every machine that this runs on.
    [[nodiscard]] uint32_t load(uint32_t address) const
    {
        uint32_t value = 0;
        return raw::pread(fd_.get(), &value, sizeof value, address) == ssize_t(sizeof value) ? value : 0;
    }
    [[nodiscard]] int store(uint32_t address, uint32_t value) const
    {
        return raw::pwrite_all(fd_.get(), &value, sizeof value, address) ? 0 : -errno;
    }

private:
    raw::Fd fd_;
};

bool is_data(uint32_t address) { return pins::bank_of(address) && (address & 0xFFF) < kDirection; }

uint32_t read_lines(const File& file, uint32_t bank, uint32_t mask, const pins::Plan& plan)
{
    const auto driven = [&file](pins::GpioLine line) -> std::optional<bool> {
        const uint32_t bit = 1u << line.bit;
        if (!(file.load(line.bank + kDirection) & bit)) return std::nullopt;
        return (file.load(line.bank + kAllData) & bit) != 0;
    };
    uint32_t value = 0;
    for (uint32_t bit = 0; bit < 8; ++bit) {
        if (!(mask & 1u << bit)) continue;
        const pins::GpioLine line{bank, bit};
        const auto output = driven(line);
        if (output ? *output : plan.level(line, clock::now_ns(), driven)) value |= 1u << bit;
    }
    return value;
}

uint32_t load(const File& file, uint32_t address)
{
    const pins::Plan plan = pins::load();
    if (const auto word = plan.word(address)) return *word;
    if (!is_data(address)) return file.load(address);
    return read_lines(file, pins::bank_of(address), address >> 2 & 0xFF, plan);
}

int store(const File& file, uint32_t address, uint32_t value)
{
    if (!is_data(address)) return file.store(address, value);
    const uint32_t all = pins::bank_of(address) + kAllData, mask = address >> 2 & 0xFF;
    return file.store(all, (file.load(all) & ~mask) | (value & mask));
}

// As the driver and the tool do it: read, change, write.
int change(uint32_t address, uint32_t set, uint32_t clear)
{
    if (address % 4) return -EINVAL;
    const File file(O_RDWR | O_CREAT);
    if (!file) return -errno;
    return store(file, address, (load(file, address) | set) & ~clear);
}

} // namespace

int read(uint32_t address, uint32_t& value)
{
    if (address % 4) return -EINVAL;
    const File file(O_RDWR | O_CREAT);
    if (!file) return -errno;
    value = load(file, address);
    return 0;
}

int set_bits(uint32_t address, uint32_t bits) { return change(address, bits, 0); }
int clear_bits(uint32_t address, uint32_t bits) { return change(address, 0, bits); }

int settle(uint32_t first, uint64_t bytes)
{
    const pins::Plan plan = pins::load();
    if (plan.words().empty()) return 0;
    const uint64_t whole = (bytes + kPage - 1) / kPage * kPage;
    const File file(O_RDWR | O_CREAT);
    int result = file ? 0 : -errno;
    for (const auto& [address, word] : plan.words())
        if (result == 0 && address >= first && address - first < whole && !is_data(address))
            result = file.store(address, word);
    return result;
}

void power_on() { ::unlink(state::path("registers").c_str()); }

std::vector<Word> all()
{
    std::vector<Word> words;
    const File file(O_RDONLY);
    if (!file) return words;
    for (int64_t at = 0; (at = raw::seek(file.fd(), at, SEEK_DATA)) >= 0;) {
        const int64_t end = raw::seek(file.fd(), at, SEEK_HOLE);
        if (end <= at) break;
        std::array<uint32_t, kPage / 4> page;
        for (; at < end && at <= UINT32_MAX - 3; at += kPage) {
            page.fill(0);
            raw::pread(file.fd(), page.data(), kPage, at);
            for (size_t i = 0; i < page.size(); ++i)
                if (page[i]) words.push_back({uint32_t(at + 4 * int64_t(i)), page[i]});
        }
        at = end;
    }
    return words;
}

} // namespace vcam::registers
