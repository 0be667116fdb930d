// Inputs bound to outputs. The drivers hand each frame on when its last sample has been taken; it plays as if
// a program had sent it then.
#include "sim/models/audio.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <ctime>
#include <unistd.h>

namespace vcam::media {
namespace {

constexpr int64_t kMoment = 20'000'000; // host time

bool from_input_to_output(const Binding& b)
{
    return b.used && b.source.module == int(kModAi) && b.destination.module == int(kModAo);
}

// Nothing on the way converts: what the devices do not have in common does not play.
bool fits(const Attributes& in, const Attributes& out)
{
    return in.rate == out.rate && in.bit_width == out.bit_width && in.points == out.points;
}

// A frame that an input has taken, for all the outputs it is bound to: each of its sides is listened to once.
class Passing {
public:
    Passing(Page& page, uint32_t slot)
        : page_(page), slot_(slot), number_(page.ai[slot].passed), when_(next_frame(page, slot)),
          in_(page.ai_device[slot / kChannels].attributes)
    {
    }

    bool play_on(uint32_t to)
    {
        AoChannel& out = page_.ao[to];
        if (!out.enabled || !fits(in_, page_.ao_device[to / kChannels].attributes)) return false;
        Ns next = kNever;
        int16_t samples[2 * kMaxPoints];
        const uint32_t channels = out.file_channels;
        for (uint32_t channel = 0; channel < channels; ++channel)
            spread(side(in_.sound_mode == kStereo ? channel : 0), samples + channel, channels);
        const std::span all(samples, in_.points * channels);
        if (play(page_, to, when_, all, in_.points, &next) != 0) return ++out.full, false;
        return ++out.bound, true;
    }

private:
    const int16_t* side(uint32_t number)
    {
        if (!heard_[number]) hear(page_, slot_, number_, number, std::span(sides_[number], in_.points));
        heard_[number] = true;
        return sides_[number];
    }
    void spread(const int16_t* from, int16_t* to, uint32_t step) const
    {
        for (uint32_t i = 0; i < in_.points; ++i)
            to[i * step] = int16_t(in_.bit_width == 0 ? from[i] & ~0xFF : from[i]);
    }

    Page& page_;
    const uint32_t slot_, number_;
    const Ns when_;
    const Attributes& in_;
    bool heard_[2] = {};
    int16_t sides_[2][kMaxPoints];
};

// It passes before it is played: whoever is killed in between loses it rather than play it twice.
void hand_on(Page& page, uint32_t slot)
{
    Passing frame(page, slot);
    bool kept = pass(page, slot);
    for (Binding& b : page.sys.binds) {
        if (!from_input_to_output(b) || slot_of(b.source) != slot) continue;
        const bool played = frame.play_on(slot_of(b.destination));
        ++(played ? b.frames : b.dropped);
        kept = kept || played;
    }
    if (!kept) ++page.ai[slot].lost;
    changed(page);
}

// The input whose next frame is the first; kSlots when none is due.
uint32_t first_due(const Page& page, Ns now)
{
    uint32_t first = kSlots;
    for (const Binding& b : page.sys.binds) {
        if (!from_input_to_output(b)) continue;
        const Ns when = next_frame(page, slot_of(b.source));
        if (when <= now && (first == kSlots || when < next_frame(page, first))) first = slot_of(b.source);
    }
    return first;
}

} // namespace

void flow(Page& page, Ns now, Locked::Wait wait)
{
    const int64_t end = wait == Locked::Wait::no ? raw::clock_ns(CLOCK_MONOTONIC) + kMoment : INT64_MAX;
    for (uint32_t slot; (slot = first_due(page, now)) != kSlots;) {
        hand_on(page, slot);
        if (end != INT64_MAX && raw::clock_ns(CLOCK_MONOTONIC) >= end) return;
    }
}

void catch_up(Locked::Wait wait)
{
    if (::access(state::path("media").c_str(), F_OK) == 0) const Current page(wait);
}

} // namespace vcam::media
