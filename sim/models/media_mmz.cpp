// The memory-zone driver, and physical memory itself.
#include "sim/models/memory.hpp"
#include "sim/models/media.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"
#include "sim/board/registers.hpp"

#include <sys/mman.h>
#include <unistd.h>

namespace vcam::models {
namespace {
namespace mmz_driver {

using namespace media;

enum Request : uint32_t {
    kAlloc = 0xC04C6D0A,
    kFree = 0x404C6D0C,
    kMap = 0xC04C6D14,
    kMapCached = 0xC04C6D15,
    kUnmap = 0xC04C6D16,
    kFlushAll = 0x00006328,
    kFlushRange = 0x400C6432,
};
constexpr RequestName kNames[] = {
    {kAlloc, "alloc"}, {kFree, "free"},         {kMap, "map"},          {kMapCached, "mapcached"},
    {kUnmap, "unmap"}, {kFlushAll, "flushall"}, {kFlushRange, "flush"},
};

struct Record {
    uint32_t physical, align, size, order, address, access;
    char name[16], zone[16];
    uint32_t reserved[5];
};
static_assert(sizeof(Record) == 76);

struct Range {
    uint32_t physical, address, size;
};

MmzBlock* block_at(Page& page, uint32_t physical)
{
    for (MmzBlock& b : page.mmz)
        if (b.used && b.physical == physical) return &b;
    return nullptr;
}

int allocate_block(Record& r)
{
    if (r.size == 0) return -EINVAL;
    Locked page;
    const uint32_t physical = allocate(*page, r.size);
    MmzBlock* free =
        std::find_if(std::begin(page->mmz), std::end(page->mmz), [](auto& b) { return !b.used; });
    if (!physical || free == std::end(page->mmz)) return -ENOMEM;
    *free = {1, physical, r.size, {}, {}};
    memcpy(free->name, r.name, sizeof free->name - 1);
    memcpy(free->zone, r.zone, sizeof free->zone - 1);
    r.physical = physical;
    return 0;
}

int map_block(Record& r)
{
    uint32_t size = 0;
    {
        Locked page;
        const MmzBlock* b = block_at(*page, r.physical);
        if (!b) return -EINVAL;
        size = b->size;
    }
    const uint32_t at = views().map(r.physical, size);
    if (!at) return -ENOMEM;
    r.address = at;
    return 0;
}

int unmap_block(const Record& r)
{
    uint32_t size = 0;
    {
        Locked page;
        if (const MmzBlock* b = block_at(*page, r.physical)) size = b->size;
    }
    return views().unmap(r.physical, size) ? 0 : -EINVAL;
}

int free_block(const Record& r)
{
    if (views().mapped(r.physical)) return -EBUSY;
    Locked page;
    MmzBlock* b = block_at(*page, r.physical);
    if (!b) return -EINVAL;
    *b = {};
    return 0;
}

// The device has no caches to write back: only a range that it does not have is refused.
int flush_range(const Range& range)
{
    const uint64_t end = uint64_t(range.physical) + range.size;
    return range.physical < kZone || end > uint64_t(kZone) + kZoneSize ? -EINVAL : 0;
}

class MmzDriver final : public MediaModel {
public:
    MmzDriver() : MediaModel("/dev/mmz_userdev", "mmz", kNames) {}

private:
    int answer(int, uint32_t request, void* argument) override
    {
        if (request == kFlushAll) return 0;
        if (request == kFlushRange) return flush_range(load<Range>(argument));
        auto record = load<Record>(argument);
        const int result = block_request(request, record);
        store(argument, record);
        return result;
    }
    static int block_request(uint32_t request, Record& record)
    {
        switch (request) {
        case kAlloc:
            return allocate_block(record);
        case kFree:
            return free_block(record);
        case kUnmap:
            return unmap_block(record);
        default:
            return map_block(record);
        }
    }
};

// Reads and writes are for the registers only; all of it can be mapped.
class MemDriver final : public Model {
public:
    MemDriver() : Model("/dev/mem", "mem") {}
    void* map(int, void* address, size_t length, int protection, int flags, int64_t offset) override
    {
        const int settled = offset >= 0 && offset < kRam ? registers::settle(uint32_t(offset), length) : 0;
        if (settled < 0) {
            errno = -settled;
            return MAP_FAILED;
        }
        return map_physical(address, length, protection, flags, offset);
    }
    ssize_t read(int, void*, size_t) override { return -EPERM; }
    ssize_t write(int, const void*, size_t) override { return -EPERM; }
    ssize_t pread(int, void*, size_t, int64_t) override { return -EPERM; }
    ssize_t pwrite(int, const void*, size_t, int64_t) override { return -EPERM; }
};

} // namespace mmz_driver
} // namespace

Model& media_mmz()
{
    static mmz_driver::MmzDriver device;
    return device;
}

Model& mem()
{
    static mmz_driver::MemDriver device;
    return device;
}

} // namespace vcam::models
