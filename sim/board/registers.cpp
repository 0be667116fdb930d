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
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

namespace vcam::registers {
namespace {

constexpr int64_t kPage = 4096;

// A page of the machine's own memory, where the chip's registers are that.
class MachinePage {
public:
    MachinePage(const std::string& memory, uint32_t address)
    {
        const raw::Fd fd(raw::open(memory.c_str(), O_RDWR | O_SYNC | O_CLOEXEC));
        void* page = fd ? raw::map(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                                   address / kPage * kPage)
                        : MAP_FAILED;
        if (page != MAP_FAILED) page_ = static_cast<volatile uint32_t*>(page);
    }
    ~MachinePage()
    {
        if (page_) ::munmap(const_cast<uint32_t*>(page_), kPage);
    }
    MachinePage(const MachinePage&) = delete;
    MachinePage& operator=(const MachinePage&) = delete;
    explicit operator bool() const { return page_ != nullptr; }
    [[nodiscard]] volatile uint32_t& word(uint32_t address) const { return page_[address % kPage / 4]; }

private:
    volatile uint32_t* page_ = nullptr;
};

// The register file, locked against other processes while this lives. Where the registers are the machine's own
// memory, it says which pages are in use.
class File {
public:
    explicit File(int flags)
        : fd_(raw::open(state::path("registers").c_str(), flags | O_CLOEXEC, 0644)),
          memory_(state::setting("memory"))
    {
        if (fd_) raw::flock(fd_.get(), LOCK_EX);
    }
    explicit operator bool() const { return bool(fd_); }
    [[nodiscard]] int fd() const { return fd_.get(); }
    // The words are little-endian, like every machine that this runs on.
    [[nodiscard]] uint32_t load(uint32_t address) const
    {
        uint32_t value = 0;
        if (!memory_.empty()) {
            const MachinePage page(memory_, address);
            return page ? page.word(address) : 0;
        }
        return raw::pread(fd_.get(), &value, sizeof value, address) == ssize_t(sizeof value) ? value : 0;
    }
    [[nodiscard]] int store(uint32_t address, uint32_t value) const
    {
        if (!memory_.empty()) {
            const MachinePage page(memory_, address);
            if (!page) return -errno;
            page.word(address) = value;
        }
        return raw::pwrite_all(fd_.get(), &value, sizeof value, address) ? 0 : -errno;
    }
    [[nodiscard]] const std::string& memory() const { return memory_; } // empty: this file

private:
    raw::Fd fd_;
    const std::string memory_;
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
    const uint64_t whole = (bytes + kPage - 1) / kPage * kPage;
    const File file(O_RDWR | O_CREAT);
    int result = file ? 0 : -errno;
    if (result == 0 && !file.memory().empty()) // all of it is in use from now on
        for (uint64_t at = first; result == 0 && at < first + whole; at += kPage)
            result = file.store(uint32_t(at), file.load(uint32_t(at)));
    for (const auto& [address, word] : plan.words())
        if (result == 0 && address >= first && address - first < whole && !is_data(address))
            result = file.store(address, word);
    return result;
}

namespace {

// The words of the file's pages that hold anything.
template<class Action> void each_page(const File& file, Action action)
{
    for (int64_t at = 0; (at = raw::seek(file.fd(), at, SEEK_DATA)) >= 0;) {
        const int64_t end = raw::seek(file.fd(), at, SEEK_HOLE);
        if (end <= at) break;
        std::array<uint32_t, kPage / 4> page;
        for (; at < end && at <= UINT32_MAX - 3; at += kPage) {
            page.fill(0);
            raw::pread(file.fd(), page.data(), kPage, at);
            action(uint32_t(at), page);
        }
    }
}

// Takes the machine's words out of it, into the file.
void fetch()
{
    const File file(O_RDWR);
    if (!file || file.memory().empty()) return;
    each_page(file, [&](uint32_t at, auto& page) {
        const MachinePage machine(file.memory(), at);
        if (!machine) return;
        for (uint32_t i = 0; i < page.size(); ++i) {
            page[i] = machine.word(at + 4 * i);
            machine.word(at + 4 * i) = 0;
        }
        raw::pwrite_all(file.fd(), page.data(), kPage, at);
    });
}

} // namespace

void power_on()
{
    fetch(); // of a run that was broken off
    ::unlink(state::path("registers").c_str());
}

void power_off() { fetch(); }

std::vector<Word> all()
{
    std::vector<Word> words;
    const File file(O_RDONLY);
    if (!file) return words;
    each_page(file, [&words](uint32_t at, auto& page) {
        for (uint32_t i = 0; i < page.size(); ++i)
            if (page[i]) words.push_back({at + 4 * i, page[i]});
    });
    return words;
}

} // namespace vcam::registers
