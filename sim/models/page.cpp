// The page of the media drivers' state, mapped and locked.
#include "sim/models/page.hpp"
#include "sim/models/memory.hpp"
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
constexpr int64_t kChangePause = 100'000'000; // host time

SharedPage& shared()
{
    static auto* one =
        new SharedPage("media", sizeof(Page), kVersion); // never destroyed: late callers run during exit
    return *one;
}

} // namespace

Locked::Locked(SharedPage::Wait wait) : page_(reinterpret_cast<Page*>(shared().lock(wait)))
{
    if (page_) page_->touched = 1;
}

Locked::~Locked()
{
    if (page_) SharedPage::unlock(&page_->head);
}

bool snapshot(Page& copy)
{
    const raw::Fd fd(raw::open(shared().file().c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return false;
    return raw::pread(fd.get(), static_cast<void*>(&copy), sizeof copy, 0) == ssize_t(sizeof copy) &&
           copy.head.version == kVersion && copy.touched;
}

void power_on()
{
    shared().retire();
    for (const char* name : {"memory", "media.log", "speaker.wav"}) ::unlink(state::path(name).c_str());
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

bool wait_for_change(uint32_t generation)
{
    return raw::futex_wait(&shared().last()->generation, generation, kChangePause);
}

void changed(Page& page)
{
    ++page.head.generation;
    raw::futex_wake(&page.head.generation);
}

} // namespace vcam::media
