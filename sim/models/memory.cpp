// Physical memory as files.
#include "sim/models/memory.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace vcam::media {
namespace {

bool grow(int fd, int64_t size)
{
    if (raw::seek(fd, 0, SEEK_END) >= size) return true;
    const char zero = 0;
    return raw::pwrite(fd, &zero, 1, size - 1) == 1;
}

struct View {
    std::mutex lock;
    std::string folder;
    uint8_t* base = nullptr;
};

View& view()
{
    static auto* one = new View;
    return *one;
}

struct Range {
    uint64_t begin, end;
};

std::vector<Range> taken(const Page& page)
{
    std::vector<Range> out;
    for (const Pool& p : page.vb.pools)
        if (p.used) out.push_back({p.physical, uint64_t(p.physical) + uint64_t(p.block_size) * p.blocks});
    for (const MmzBlock& b : page.mmz)
        if (b.used) out.push_back({b.physical, uint64_t(b.physical) + b.size});
    std::sort(out.begin(), out.end(), [](auto& a, auto& b) { return a.begin < b.begin; });
    return out;
}

} // namespace

void* map_physical(void* address, size_t length, int protection, int flags, int64_t physical)
{
    const int64_t end = physical + int64_t(length);
    const bool ram = physical >= kRam;
    if (physical < 0 || length == 0 || end > (ram ? int64_t(kRam) + kRamSize : int64_t(kRam))) {
        errno = ENXIO;
        return MAP_FAILED;
    }
    if (const std::string memory = state::setting("memory"); !memory.empty()) {
        const raw::Fd fd(raw::open(memory.c_str(), O_RDWR | O_SYNC | O_CLOEXEC));
        return fd ? raw::map(address, length, protection, flags, fd.get(), physical) : MAP_FAILED;
    }
    const int64_t offset = ram ? physical - kRam : physical;
    const std::string path = state::path(ram ? "memory" : "registers");
    const raw::Fd fd(raw::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    const int64_t whole = (offset + int64_t(length) + kPageSize - 1) / kPageSize * kPageSize;
    if (!fd || !grow(fd.get(), ram ? int64_t(kRamSize) : whole)) return MAP_FAILED;
    return raw::map(address, length, protection, flags, fd.get(), offset);
}

namespace {

// Into this process, where a 32-bit word can name it.
class OwnViews final : public Views {
public:
    uint32_t map(uint32_t physical, uint32_t size) override
    {
#ifdef MAP_32BIT
        constexpr int kLow = MAP_32BIT;
#else
        constexpr int kLow = 0;
#endif
        const std::lock_guard hold(lock_);
        if (const auto known = at_.find(physical); known != at_.end()) return address_of(known->second);
        void* at = map_physical(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | kLow, physical);
        if (at == MAP_FAILED) return 0;
        at_[physical] = at;
        return address_of(at);
    }
    bool unmap(uint32_t physical, uint32_t size) override
    {
        const std::lock_guard hold(lock_);
        const auto known = at_.find(physical);
        if (known == at_.end()) return false;
        if (size) ::munmap(known->second, size);
        at_.erase(known);
        return true;
    }
    bool mapped(uint32_t physical) override
    {
        const std::lock_guard hold(lock_);
        return at_.contains(physical);
    }

private:
    static uint32_t address_of(void* at) { return uint32_t(reinterpret_cast<uintptr_t>(at)); }
    std::mutex lock_;
    std::map<uint32_t, void*> at_; // by physical address
};

std::atomic<Views*> other_views{nullptr};

} // namespace

Views& views()
{
    static auto* own = new OwnViews; // late callers run during exit
    Views* other = other_views;
    return other ? *other : *own;
}

void use_views(Views& views) { other_views = &views; }

uint8_t* zone_at(uint32_t physical)
{
    View& v = view();
    const std::lock_guard hold(v.lock);
    if (!v.base || v.folder != state::dir()) {
        if (v.base) ::munmap(v.base, kZoneSize);
        void* at = map_physical(nullptr, kZoneSize, PROT_READ | PROT_WRITE, MAP_SHARED, kZone);
        v.base = at == MAP_FAILED ? nullptr : static_cast<uint8_t*>(at);
        v.folder = state::dir();
    }
    return v.base && physical >= kZone ? v.base + (physical - kZone) : nullptr;
}

void forget_zone()
{
    View& v = view();
    const std::lock_guard hold(v.lock);
    v.folder.clear();
}

uint32_t allocate(const Page& page, uint64_t size)
{
    const uint64_t whole = (size + kPageSize - 1) / kPageSize * kPageSize;
    uint64_t at = kZone;
    for (const Range& s : taken(page)) {
        if (s.begin >= at + whole) break;
        at = (std::max(at, s.end) + kPageSize - 1) / kPageSize * kPageSize;
    }
    return whole && at + whole <= uint64_t(kZone) + kZoneSize ? uint32_t(at) : 0;
}

} // namespace vcam::media
