// What the models of the media drivers share.
#include "sim/models/media.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/audio.hpp"
#include "sim/base/raw.hpp"

#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace vcam::models {

void set_slot(int fd, uint32_t slot) { raw::seek(fd, int64_t(slot) + 1, SEEK_SET); }

uint32_t slot_of(int fd)
{
    const int64_t at = raw::seek(fd, 0, SEEK_CUR);
    return at < 1 || at > media::kSlots ? kNoSlot : uint32_t(at - 1);
}

bool wait_for(media::Ns time, uint32_t generation)
{
    if (time != media::kNever) return clock::sleep_until(time, false);
    return media::wait_for_change(generation);
}

void note(const char* driver, const char* format, ...)
{
    char text[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    journal::add(driver, text);
    journal::add_to("media.log", driver, text);
}

} // namespace vcam::models
