// Inputs bound to outputs. The drivers hand each frame on when its last sample has been taken; it plays as if
// a program had sent it then.
#include "sim/drv/media/audio.hpp"
#include "sim/drv/state.hpp"

#include <algorithm>
#include <unistd.h>

namespace vcam::media {
namespace {

bool from_input_to_output(const Bind& b)
{
    return b.used && b.source.module == int(kModAi) && b.destination.module == int(kModAo);
}

// Nothing on the way converts: what the devices do not have in common does not play.
bool fits(const Attributes& in, const Attributes& out)
{
    return in.rate == out.rate && in.bit_width == out.bit_width && in.points == out.points;
}

// A frame in the output's channels: both from one, or the left one of two.
struct Sound {
    int16_t samples[2 * kMaxPoints];

    Sound(Page& page, uint32_t slot, const Attributes& in, uint32_t channels)
    {
        int16_t side[kMaxPoints];
        for (uint32_t channel = 0; channel < channels; ++channel) {
            if (channel == 0 || in.sound_mode == kStereo)
                hear(page, slot, page.ai[slot].passed, channel, std::span(side, in.points));
            for (uint32_t i = 0; i < in.points; ++i)
                samples[i * channels + channel] = int16_t(in.bit_width == 0 ? side[i] & ~0xFF : side[i]);
        }
    }
};

bool hand_on(Page& page, uint32_t slot, uint32_t to, Ns when)
{
    const Attributes& in = page.ai_device[slot / kChannels].attributes;
    AoChannel& out = page.ao[to];
    if (!out.enabled || !fits(in, page.ao_device[to / kChannels].attributes)) return false;
    const Sound sound(page, slot, in, out.file_channels);
    Ns next = kNever;
    const std::span samples(sound.samples, in.points * out.file_channels);
    if (play(page, to, when, samples, in.points, &next) != 0) return ++out.full, false;
    return ++out.bound, true;
}

// The input whose next frame is the first; kSlots when none is due.
uint32_t first_due(const Page& page, Ns now)
{
    uint32_t first = kSlots;
    for (const Bind& b : page.sys.binds) {
        if (!from_input_to_output(b)) continue;
        const Ns when = next_frame(page, slot_of(b.source));
        if (when <= now && (first == kSlots || when < next_frame(page, first))) first = slot_of(b.source);
    }
    return first;
}

} // namespace

void flow(Page& page, Ns now)
{
    for (uint32_t slot; (slot = first_due(page, now)) != kSlots;) {
        const Ns when = next_frame(page, slot);
        bool heard = false;
        for (Bind& b : page.sys.binds) {
            if (!from_input_to_output(b) || slot_of(b.source) != slot) continue;
            const bool played = hand_on(page, slot, slot_of(b.destination), when);
            ++(played ? b.frames : b.dropped);
            heard = heard || played;
        }
        pass(page, slot, heard);
        changed(page);
    }
}

void catch_up(Locked::Wait wait)
{
    if (::access(state::path("media").c_str(), F_OK) == 0) const Current page(wait);
}

} // namespace vcam::media
