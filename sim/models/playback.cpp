// Audio output. What a channel is sent plays back to back; its file holds it from the moment it is sent, so
// that it is whole however the program ends. A channel that runs dry starts a new segment with the next
// frame: the file holds no pause for it, the counters do.
#include "sim/models/audio.hpp"
#include "sim/models/wav.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <unistd.h>

namespace vcam::media {
namespace {

const Attributes& attributes(const Page& page, uint32_t slot)
{
    return page.ao_device[device_of(slot)].attributes;
}
uint32_t capacity(const Attributes& a) { return a.frames * a.points; }

Segment* last_segment(AoChannel& c)
{
    return c.segment_count ? &c.segments[(c.segment_count - 1) % kSegments] : nullptr;
}
const Segment* last_segment(const AoChannel& c) { return last_segment(const_cast<AoChannel&>(c)); }

uint32_t played_of(const Segment& s, uint32_t rate, Ns now)
{
    return uint32_t(std::clamp<int64_t>(samples_in(now - s.start_ns, rate), 0, s.samples));
}

// Stays at the highest number: the file is full long before, and its beginning is not for the end's samples.
uint32_t behind(uint32_t written, uint32_t points)
{
    return written + std::min(points, UINT32_MAX - written);
}

void begin_segment(AoChannel& c, Ns now, uint32_t first, uint32_t samples)
{
    c.segments[c.segment_count++ % kSegments] = {now, first, samples};
}

// Cuts the last segment where the channel stands. How many samples were left of it.
uint32_t cut(Page& page, uint32_t slot, Ns now)
{
    Segment* s = last_segment(page.ao[slot]);
    if (!s) return 0;
    const uint32_t done = played_of(*s, attributes(page, slot).rate, now);
    const uint32_t left = s->samples - done;
    s->samples = done;
    return left;
}

void drop_unplayed(Page& page, uint32_t slot, Ns now)
{
    AoChannel& c = page.ao[slot];
    uint32_t left = c.waiting + (c.paused ? 0 : cut(page, slot, now));
    c.waiting = 0;
    c.fed = 0;
    if (left == 0) return;
    c.written -= left;
    c.cleared += left;
    wav::truncate(speaker_file(page, slot), c.file_channels, c.written);
}

} // namespace

std::string speaker_file(const Page& page, uint32_t slot)
{
    if (page.speaker_slot == slot + 1) return state::path("speaker.wav");
    return further_speaker_file(slot);
}

void start_output(Page& page, uint32_t device) { page.ao_device[device].enabled = 1; }

void stop_output(Page& page, uint32_t device, Ns now)
{
    for (uint32_t c = 0; c < kChannels; ++c) stop_playing(page, device * kChannels + c, now);
    page.ao_device[device].enabled = 0;
}

int start_playing(Page& page, uint32_t slot)
{
    AoChannel& c = page.ao[slot];
    if (!page.ao_device[device_of(slot)].enabled) return coded(kModAo, kNotPermitted);
    if (c.enabled) return 0;
    if (!page.speaker_slot) page.speaker_slot = slot + 1;
    const Attributes& a = attributes(page, slot);
    const bool goes_on = c.file_rate == a.rate && c.file_channels == a.sound_mode + 1 &&
                         ::access(speaker_file(page, slot).c_str(), F_OK) == 0;
    AoChannel fresh = {};
    fresh.file_rate = a.rate;
    fresh.file_channels = a.sound_mode + 1;
    fresh.written = goes_on ? c.written : 0;
    if (!goes_on && !wav::create(speaker_file(page, slot), a.rate, fresh.file_channels))
        return coded(kModAo, kNoMemory);
    fresh.enabled = 1;
    c = fresh;
    return 0;
}

void stop_playing(Page& page, uint32_t slot, Ns now)
{
    AoChannel& c = page.ao[slot];
    if (!c.enabled) return;
    drop_unplayed(page, slot, now);
    c.enabled = c.paused = 0;
    changed(page);
}

void pause(Page& page, uint32_t slot, Ns now)
{
    AoChannel& c = page.ao[slot];
    if (c.paused) return;
    c.waiting = cut(page, slot, now);
    c.paused = 1;
    c.fed = 0;
}

void resume(Page& page, uint32_t slot, Ns now)
{
    AoChannel& c = page.ao[slot];
    if (!c.paused) return;
    c.paused = 0;
    if (c.waiting) begin_segment(c, now, c.written - c.waiting, c.waiting);
    c.fed = c.waiting != 0;
    c.waiting = 0;
    changed(page);
}

void clear(Page& page, uint32_t slot, Ns now)
{
    drop_unplayed(page, slot, now);
    changed(page);
}

uint32_t queued(const Page& page, uint32_t slot, Ns now)
{
    const AoChannel& c = page.ao[slot];
    const Segment* s = last_segment(c);
    if (c.paused || !s) return c.waiting;
    return s->samples - played_of(*s, attributes(page, slot).rate, now);
}

bool has_room(const Page& page, uint32_t slot, Ns now, uint32_t points, Ns* next)
{
    const AoChannel& c = page.ao[slot];
    const Attributes& a = attributes(page, slot);
    const uint32_t waiting = queued(page, slot, now);
    *next = kNever;
    if (waiting == 0 || waiting + points <= capacity(a)) return true;
    if (c.paused) return false;
    const uint32_t may_wait = capacity(a) > points ? capacity(a) - points : 0;
    const Segment* s = last_segment(c);
    *next = s->start_ns + time_of(int64_t(s->samples) - may_wait, a.rate);
    return false;
}

int play(Page& page, uint32_t slot, Ns now, std::span<const int16_t> samples, uint32_t points, Ns* next)
{
    AoChannel& c = page.ao[slot];
    if (!c.enabled) return coded(kModAo, kNotPermitted);
    if (!has_room(page, slot, now, points, next)) return 1;
    // What comes within a sample's time of the end is in time.
    const Ns sample = time_of(1, attributes(page, slot).rate);
    const bool dry = !c.paused && queued(page, slot, now - sample) == 0;
    // The file comes first: a process killed in here leaves no counter above the samples in the file.
    wav::put(speaker_file(page, slot), c.file_channels, c.written, samples);
    if (dry && c.fed) ++c.underruns;
    if (dry) begin_segment(c, now, c.written, 0);
    if (c.paused)
        c.waiting += points;
    else
        last_segment(c)->samples += points;
    c.fed = !c.paused;
    c.written = behind(c.written, points);
    ++c.frames;
    measure(c.level, samples);
    return 0;
}

void played(const Page& page, uint32_t slot, Ns from, std::span<int16_t> out)
{
    const AoChannel& c = page.ao[slot];
    const uint32_t rate = attributes(page, slot).rate;
    const uint32_t kept = std::min(c.segment_count, kSegments);
    for (uint32_t i = c.segment_count - kept; i < c.segment_count; ++i) {
        const Segment& s = c.segments[i % kSegments];
        // Samples of the segment that are over by then, to the nearest; below 0: it begins later.
        const int64_t skip = samples_in(from - s.start_ns + clock::kSecond / 2 / rate, rate);
        const int64_t begin = std::max<int64_t>(0, -skip);
        const int64_t end = std::min<int64_t>(int64_t(out.size()), int64_t(s.samples) - skip);
        if (begin >= end) continue;
        wav::get(speaker_file(page, slot), c.file_channels, s.first + skip + begin,
                 out.subspan(size_t(begin), size_t(end - begin)));
    }
}

} // namespace vcam::media
