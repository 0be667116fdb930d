// The page of the media drivers' state, mapped and locked.
#include "sim/models/page.hpp"
#include "sim/models/memory.hpp"
#include "sim/clock/quiet.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace vcam::media {
namespace {

constexpr uint32_t kVersion = 0x3241434D;     // "MCA2"
constexpr int64_t kLockPause = 1'000'000;     // host time
constexpr int64_t kChangePause = 100'000'000; // host time
constexpr int kPatience = 50;                 // looks at a holder before it is asked whether it lives

std::string file() { return state::path("media"); }

struct Mapping {
    std::mutex lock;
    std::string folder;
    Page* page = nullptr;
};

Mapping& mapping()
{
    static auto* one = new Mapping; // never destroyed: late callers run during exit
    return *one;
}

Page* map_page()
{
    const raw::Fd fd(raw::open(file().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!fd || ::ftruncate(fd.get(), sizeof(Page)) != 0) return nullptr;
    void* at = ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    return at == MAP_FAILED ? nullptr : static_cast<Page*>(at);
}

// A test may go from one camera to the next.
Page* current()
{
    Mapping& m = mapping();
    const std::lock_guard hold(m.lock);
    if (m.page && m.folder == state::dir() && m.page->version == kVersion) return m.page;
    if (m.page) ::munmap(static_cast<void*>(m.page), sizeof(Page));
    m.folder = state::dir();
    m.page = map_page();
    if (!m.page) {
        fprintf(stderr, "vcam: %s: cannot be mapped\n", file().c_str());
        ::abort();
    }
    m.page->version = kVersion;
    return m.page;
}

} // namespace

Locked::Locked(Wait wait) : page_(current())
{
    const auto self = uint32_t(raw::tid());
    for (int looks = 0;; ++looks) {
        uint32_t holder = 0;
        if (page_->owner.compare_exchange_strong(holder, self)) break;
        const bool doubtful = wait == Wait::no || looks >= kPatience;
        const bool orphaned = doubtful && !quiet::alive(int(holder));
        if (orphaned && page_->owner.compare_exchange_strong(holder, self)) break;
        if (wait == Wait::no) {
            page_ = nullptr;
            return;
        }
        ++page_->waiters;
        raw::futex_wait(&page_->owner, holder, kLockPause);
        --page_->waiters;
    }
    page_->touched = 1;
}

Locked::~Locked()
{
    if (!page_) return;
    page_->owner = 0;
    if (page_->waiters) raw::futex_wake(&page_->owner);
}

bool snapshot(Page& copy)
{
    const raw::Fd fd(raw::open(file().c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return false;
    return raw::pread(fd.get(), static_cast<void*>(&copy), sizeof copy, 0) == ssize_t(sizeof copy) &&
           copy.version == kVersion && copy.touched;
}

// The old page stays with whoever still has it, and is stamped as no longer in force.
void power_on()
{
    const raw::Fd fd(raw::open(file().c_str(), O_RDWR | O_CLOEXEC));
    const uint32_t gone = 0;
    if (fd) raw::pwrite_all(fd.get(), &gone, sizeof gone, offsetof(Page, version));
    for (const char* name : {"media", "memory", "media.log", "speaker.wav"})
        ::unlink(state::path(name).c_str());
    for (uint32_t slot = 0; slot < kSlots; ++slot) ::unlink(further_speaker_file(slot).c_str());
    forget_zone();
}

std::string further_speaker_file(uint32_t slot)
{
    return state::path("speaker-" + std::to_string(slot / kChannels) + "-" +
                       std::to_string(slot % kChannels) + ".wav");
}

void reset_acodec()
{
    Locked page;
    page->acodec = {.resets = page->acodec.resets + 1, .requests = 0, .setting = {}, .known = {}};
}

void wait_for_change(uint32_t generation)
{
    raw::futex_wait(&mapping().page->generation, generation, kChangePause);
}

void changed(Page& page)
{
    ++page.generation;
    raw::futex_wake(&page.generation);
}

} // namespace vcam::media
