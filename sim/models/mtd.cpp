// Flash partitions as the kernel's MTD character devices show them.
//
// NOR: a byte can be written whenever its new value only clears bits; a bit that would have to be set
// makes the chip's program command time out, EIO, with the byte left as the AND of both values. NAND:
// only whole parts of a page, as many as the error correction has; what was not erased takes the AND
// without a word, so only reading back finds it. The kernel refuses to erase a bad block, and leaves it
// to the chip what becomes of a write to one. Erasing gives 0xFF.
#include "sim/clock/clock.hpp"
#include "sim/clock/flash.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace vcam::models {
namespace {
namespace mtd_driver {

// The kernel's MTD user interface: request numbers and records, the same in 32 and 64 bits.
constexpr uint32_t kGetInfo = 0x80204D01, kErase = 0x40084D02, kGetBadBlock = 0x40084D0B,
                   kSetBadBlock = 0x40084D0C, kErase64 = 0x40104D14;
constexpr RequestName kNames[] = {{kGetInfo, "info"},
                                  {kErase, "erase", true},
                                  {kErase64, "erase", true},
                                  {kGetBadBlock, "badblock", true},
                                  {kSetBadBlock, "markbad"}};
constexpr uint8_t kTypeNor = 3, kTypeNand = 4;
constexpr uint32_t kWriteable = 0x400, kBitWriteable = 0x800;

struct MtdInfo {
    uint8_t type;
    uint8_t pad[3];
    uint32_t flags;
    uint32_t size;
    uint32_t erase_size;
    uint32_t write_size;
    uint32_t oob_size;
    uint64_t padding;
};
static_assert(sizeof(MtdInfo) == 32 && offsetof(MtdInfo, erase_size) == 12);

template<class T> T load(const void* from)
{
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

// One line in the journal for what happened to a stretch of flash, not one a call.
class Stretch {
public:
    explicit Stretch(const char* name) : name_(name) {}
    void add(const char* what, uint32_t begin, uint32_t size)
    {
        if (size == 0) return;
        if (what_ != what || begin != end_) {
            tell();
            what_ = what;
            begin_ = begin;
        }
        end_ = begin + size;
    }
    void tell()
    {
        if (!what_) return;
        char text[96];
        snprintf(text, sizeof text, "%s %s 0x%x-0x%x", name_, what_, begin_, end_);
        what_ = nullptr;
        journal::add("mtd", text);
    }

private:
    const char* name_;
    const char* what_ = nullptr;
    uint32_t begin_ = 0, end_ = 0;
};

// A chip takes its time where VCAM_PACE asks for it: the value says how many times faster than a chip. Short operations
// add up to a tick, as no sleep is shorter.
class Pace {
public:
    void erase(uint64_t bytes) { spend(double(bytes) / kErased); }
    void program(uint64_t bytes) { spend(double(bytes) / kProgrammed); }

private:
    // Bytes a second of a NOR chip of the camera's age: 64 KiB in half a second, and 16 bytes in 50 us.
    static constexpr double kErased = 128 << 10, kProgrammed = 320000;
    void spend(double seconds)
    {
        if (faster_ <= 0) return;
        const auto more = int64_t(seconds * 1e9 / faster_);
        if ((owed_ns_ += more) < clock::kTick) return;
        clock::sleep_until(clock::now_ns() + owed_ns_.exchange(0), true);
    }
    const double faster_ = ::getenv("VCAM_PACE") ? ::atof(::getenv("VCAM_PACE")) : 0;
    std::atomic<int64_t> owed_ns_ = 0;
};

// What both devices over a partition do alike.
class PartitionModel : public Model {
public:
    PartitionModel(const char* device_path, const char* device_name, unsigned number,
                   std::span<const RequestName> request_names = {})
        : Model(device_path, device_name, request_names), number_(number)
    {
    }
    std::string backing() const override
    {
        return state::Partition{.number = number_, .bad_blocks = {}}.image();
    }
    ssize_t write(int fd, const void* data, size_t size) override
    {
        const int64_t at = raw::seek(fd, 0, SEEK_CUR);
        const ssize_t n = pwrite(fd, data, size, at);
        if (n > 0) raw::seek(fd, at + n, SEEK_SET);
        return n;
    }

protected:
    ~PartitionModel() = default;
    static int open_image(const state::Partition& part, int flags)
    {
        if (part.size == 0) return -ENODEV;
        if (!state::complete_image(part)) return -errno;
        const int fd = raw::open(part.image().c_str(), flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND));
        return fd < 0 ? -errno : fd;
    }
    const unsigned number_;
};

class Mtd final : public PartitionModel {
public:
    Mtd(const char* device_path, const char* device_name, unsigned number)
        : PartitionModel(device_path, device_name, number, kNames), stretch_(device_name)
    {
    }
    int open(int flags) override { return open_image(measure(), flags); }
    ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset) override
    {
        if (!writable(fd)) return -EBADF;
        const auto known = flash();
        const state::Partition& part = *known;
        if (offset < 0) return -EINVAL;
        if (offset >= part.size) return -ENOSPC; // nothing does not fit either
        size = size_t(std::min<int64_t>(int64_t(size), int64_t(part.size) - offset));
        const auto begin = static_cast<const uint8_t*>(data);
        const ssize_t n = program(part, uint32_t(offset), std::vector<uint8_t>(begin, begin + size));
        if (n > 0) pace_.program(uint64_t(n));
        return n;
    }
    int64_t seek(int fd, int64_t offset, int whence) override
    {
        const int64_t size = flash()->size;
        int64_t base = 0;
        if (whence == SEEK_CUR) base = raw::seek(fd, 0, SEEK_CUR);
        if (whence == SEEK_END) base = size;
        if (whence < SEEK_SET || whence > SEEK_END || base + offset < 0 || base + offset > size)
            return -EINVAL;
        return Model::seek(fd, base + offset, SEEK_SET);
    }
    int ioctl(int fd, uint32_t request, void* argument) override
    {
        const auto known = flash();
        const state::Partition& part = *known;
        if (!argument) return -EFAULT;
        switch (request) {
        case kGetInfo:
            return info(part, argument);
        case kGetBadBlock:
            return bad_block(part, load<int64_t>(argument));
        case kSetBadBlock:
            return writable(fd) ? mark_bad(part, load<int64_t>(argument)) : -EPERM;
        case kErase:
        case kErase64: {
            if (!writable(fd)) return -EPERM;
            const auto [start, length] = range(request, argument);
            return erase(part, start, length, length);
        }
        default:
            return -ENOTTY;
        }
    }
    int64_t request_block(uint32_t request, const void* argument) const override
    {
        if (!argument) return -1;
        if (request == kErase || request == kErase64)
            return offset_block(int64_t(range(request, argument).start));
        return request == kGetBadBlock ? offset_block(load<int64_t>(argument)) : -1;
    }
    int64_t offset_block(int64_t offset) const override
    {
        const uint32_t size = flash()->erase_size;
        return size ? offset / size : -1;
    }
    // Half of the block's bytes have reached 0xFF when the power goes.
    void half_ioctl(int fd, uint32_t request, void* argument) override
    {
        if (!argument || !writable(fd) || strcmp(request_name(request), "erase") != 0) return;
        const auto [start, length] = range(request, argument);
        erase(*flash(), start, length, length / 2);
    }
    void closed() override { flush(); }
    void flush() override
    {
        const std::lock_guard hold(lock_);
        stretch_.tell();
    }

private:
    struct Range {
        uint64_t start, length;
    };
    static Range range(uint32_t request, const void* argument)
    {
        const auto at = static_cast<const uint8_t*>(argument);
        if (request == kErase64) return {load<uint64_t>(at), load<uint64_t>(at + 8)};
        return {load<uint32_t>(at), load<uint32_t>(at + 4)};
    }
    // The geometry is read when the device is opened: no call waits for a file.
    state::Partition measure()
    {
        auto fresh = std::make_shared<const state::Partition>(state::partition(number_));
        const std::lock_guard hold(geometry_lock_);
        geometry_ = fresh;
        return *fresh;
    }
    std::shared_ptr<const state::Partition> flash() const
    {
        const std::lock_guard hold(geometry_lock_);
        if (!geometry_) geometry_ = std::make_shared<const state::Partition>(state::partition(number_));
        return geometry_;
    }
    static bool writable(int fd) { return (::fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY; }
    static bool is_bad(const state::Partition& part, uint64_t offset)
    {
        const auto& bad = part.bad_blocks;
        return std::find(bad.begin(), bad.end(), uint32_t(offset / part.erase_size)) != bad.end();
    }
    static int info(const state::Partition& part, void* argument)
    {
        const MtdInfo info = {part.nand ? kTypeNand : kTypeNor,
                              {},
                              part.nand ? kWriteable : kWriteable | kBitWriteable,
                              part.size,
                              part.erase_size,
                              part.write_size,
                              part.nand ? part.write_size / 32 : 0,
                              0};
        memcpy(argument, &info, sizeof info);
        return 0;
    }
    static int bad_block(const state::Partition& part, int64_t offset)
    {
        if (offset < 0 || offset >= part.size) return -EINVAL;
        if (!part.nand) return -EOPNOTSUPP; // new kernels answer 0; the camera's is old
        return is_bad(part, uint64_t(offset));
    }
    int mark_bad(const state::Partition& part, int64_t offset)
    {
        const int known = bad_block(part, offset);
        if (known != 0) return std::min(known, 0);
        if (!flash::mark_bad(part.image(), uint32_t(offset), part.erase_size)) return -errno;
        measure();
        return 0;
    }
    // Checks as for `length`, and does the first `done` bytes of it.
    int erase(const state::Partition& part, uint64_t start, uint64_t length, uint64_t done)
    {
        if (start >= part.size || length > part.size - start) return -EINVAL;
        if (start % part.erase_size || length % part.erase_size) return -EINVAL;
        uint64_t good = start; // erasing ends at the first bad block
        while (good < start + length && !is_bad(part, good)) good += part.erase_size;
        done = std::min(done, good - start);
        const std::lock_guard hold(lock_);
        const raw::Fd image(raw::open(part.image().c_str(), O_RDWR | O_CLOEXEC));
        if (!image) return -errno;
        for (uint64_t at = 0; at < done; at += part.erase_size) {
            const size_t size = size_t(std::min<uint64_t>(part.erase_size, done - at));
            if (!flash::erase(image.get(), part.image(), uint32_t(start + at), uint32_t(size))) return -errno;
            stretch_.add("erase", uint32_t(start + at), uint32_t(size));
            pace_.erase(size);
        }
        return good < start + length ? -EIO : 0;
    }
    // Software error correction works on 256 bytes; a page of more than two such steps is written in
    // quarters at the least, so that no part is programmed more often than the chip allows.
    static uint32_t smallest_write(const state::Partition& part)
    {
        if (!part.nand) return 1;
        return part.write_size > 512 ? part.write_size / 4 : part.write_size / 2;
    }
    ssize_t program(const state::Partition& part, uint32_t offset, std::vector<uint8_t> bytes)
    {
        const uint32_t unit = smallest_write(part);
        if (offset % unit || bytes.size() % unit) return -EINVAL;
        const std::lock_guard hold(lock_);
        const raw::Fd image(raw::open(part.image().c_str(), O_RDWR | O_CLOEXEC));
        if (!image) return -errno;
        raw::flock(image.get(), LOCK_EX); // other processes' programming of the same bytes
        std::vector<uint8_t> old(bytes.size());
        if (raw::pread(image.get(), old.data(), old.size(), offset) != ssize_t(old.size())) return -EIO;
        size_t done = bytes.size();
        bool stuck = false;
        for (size_t i = 0; i < done; ++i) {
            stuck = !part.nand && (bytes[i] & ~old[i]);
            bytes[i] &= old[i];
            if (stuck) done = i + 1; // the loop ends with the byte that did not come out
        }
        if (!flash::write(image.get(), part.image(), offset, {bytes.data(), done})) return -errno;
        if (is_bad(part, offset))
            stretch_.add("write to bad block", offset, uint32_t(done));
        else
            stretch_.add("write", offset, uint32_t(done));
        return stuck ? -EIO : ssize_t(done);
    }

    mutable std::mutex geometry_lock_;
    mutable std::shared_ptr<const state::Partition> geometry_;
    std::mutex lock_;
    Stretch stretch_;
    Pace pace_;
};

// The block device over a partition. Reads are the image's own; writes go through erase and
// program in the kernel's translation layer, so the image takes them as they are.
class MtdBlock final : public PartitionModel {
public:
    using PartitionModel::PartitionModel;
    int open(int flags) override { return open_image(state::partition(number_), flags); }
    ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset) override
    {
        const int64_t end = state::partition(number_).size;
        if (offset < 0) return -EINVAL;
        if (offset >= end) return size ? -ENOSPC : 0;
        if ((::fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY) return -EBADF;
        size = size_t(std::min<int64_t>(int64_t(size), end - offset));
        const bool done =
            flash::replace(fd, backing(), uint32_t(offset), {static_cast<const uint8_t*>(data), size});
        return done ? ssize_t(size) : -errno;
    }
    int64_t seek(int fd, int64_t offset, int whence) override
    {
        const int64_t before = raw::seek(fd, 0, SEEK_CUR), at = Model::seek(fd, offset, whence);
        if (at <= int64_t(state::partition(number_).size)) return at;
        Model::seek(fd, before, SEEK_SET);
        return -EINVAL;
    }
};

} // namespace mtd_driver
} // namespace

Model& mtd(unsigned number)
{
    static mtd_driver::Mtd devices[] = {{"/dev/mtd0", "mtd0", 0},
                                        {"/dev/mtd1", "mtd1", 1},
                                        {"/dev/mtd2", "mtd2", 2},
                                        {"/dev/mtd3", "mtd3", 3}};
    return devices[number];
}

Model& mtd_block(unsigned)
{
    static mtd_driver::MtdBlock device("/dev/mtdblock3", "mtdblock3", 3);
    return device;
}

} // namespace vcam::models
