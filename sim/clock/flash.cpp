// The one place where a partition's image changes, and the record of these changes.
#include "sim/clock/flash.hpp"
#include "sim/base/raw.hpp"
#include "sim/clock/clock.hpp"

#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <vector>

namespace vcam::flash {
namespace {

constexpr std::string_view kImages = "/flash/mtd";

// Appended by one call, which other processes' appends cannot split. False with errno when it does not fit.
bool record(const std::string& image, Kind kind, uint32_t offset, uint32_t size,
            std::span<const uint8_t> data)
{
    const size_t at = image.rfind(kImages);
    if (at == image.npos || image.size() != at + kImages.size() + 1) return true;
    const raw::Fd fd(raw::open((image.substr(0, at) + "/record").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!fd) return true; // nobody asked for a record
    Entry entry = {{},
                   uint32_t(data.size()),
                   clock::now_ns(),
                   raw::pid(),
                   uint8_t(kind),
                   uint8_t(image.back() - '0'),
                   0,
                   offset,
                   size,
                   {}};
    memcpy(entry.magic, kMagic, sizeof entry.magic);
    ::prctl(PR_GET_NAME, entry.process);
    std::vector<uint8_t> bytes(sizeof entry + data.size());
    memcpy(bytes.data(), &entry, sizeof entry);
    if (!data.empty()) memcpy(bytes.data() + sizeof entry, data.data(), data.size());
    return raw::write_all(fd.get(), bytes.data(), bytes.size());
}

} // namespace

bool write(int fd, const std::string& image, uint32_t offset, std::span<const uint8_t> data)
{
    return record(image, Kind::write, offset, uint32_t(data.size()), data) &&
           raw::pwrite_all(fd, data.data(), data.size(), offset);
}

bool replace(int fd, const std::string& image, uint32_t offset, std::span<const uint8_t> data)
{
    return record(image, Kind::replace, offset, uint32_t(data.size()), data) &&
           raw::pwrite_all(fd, data.data(), data.size(), offset);
}

bool erase(int fd, const std::string& image, uint32_t offset, uint32_t size)
{
    const std::vector<uint8_t> erased(size, 0xFF);
    return record(image, Kind::erase, offset, size, {}) &&
           raw::pwrite_all(fd, erased.data(), erased.size(), offset);
}

bool mark_bad(const std::string& image, uint32_t offset, uint32_t erase_size)
{
    return record(image, Kind::mark_bad, offset, erase_size, {}) &&
           raw::append(image + ".bad", std::to_string(offset / erase_size) + "\n");
}

} // namespace vcam::flash
