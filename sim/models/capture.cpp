// Audio input. A device's frames follow each other from the moment its first channel is enabled: there the
// microphone's file begins. Each enabled channel keeps what it has room for; what finds none is lost.
#include "sim/models/audio.hpp"
#include "sim/models/memory.hpp"
#include "sim/models/pools.hpp"
#include "sim/models/wav.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace vcam::media {
namespace {

constexpr uint32_t kBlocksOfFrame = 4; // left, right, and both of the echo reference
constexpr uint32_t kLongestLoop =
    1000; // milliseconds; the output's record of what it played goes back that far

bool any_channel(const Page& page, uint32_t device)
{
    const AiChannel* first = page.ai + device * kChannels;
    return std::any_of(first, first + kChannels, [](const AiChannel& c) { return c.enabled; });
}

const wav::Reader& microphone()
{
    static std::unique_ptr<wav::Reader> file;
    if (!file || !file->current()) file = std::make_unique<wav::Reader>(state::path("mic.wav"));
    return *file;
}

Ns start_of(const AiDevice& d, int64_t frame)
{
    return d.start_ns + time_of(frame * d.attributes.points, d.attributes.rate);
}

// Keeps a frame that passes for programs, if there is room.
bool keep(Page& page, uint32_t slot, uint32_t number)
{
    AiChannel& c = page.ai[slot];
    const AiDevice& d = page.ai_device[device_of(slot)];
    Pool* pool = pool_at(page, d.pool);
    const uint32_t block = pool && c.count < d.attributes.frames ? take_block(*pool, Block::driver) : kBlocks;
    if (block == kBlocks) return false;
    c.ring[(c.head + c.count) % kMaxFrames] = {number, block};
    ++c.count;
    return true;
}

uint32_t passed(const AiDevice& d, Ns now)
{
    return uint32_t(samples_in(now - d.start_ns, d.attributes.rate) / d.attributes.points);
}

// Frames that have passed since the last look.
void advance(Page& page, uint32_t slot, Ns now)
{
    AiChannel& c = page.ai[slot];
    const uint32_t end = passed(page.ai_device[device_of(slot)], now);
    while (c.passed < end && keep(page, slot, c.passed)) ++c.passed;
    c.lost += end - c.passed;
    c.passed = end;
}

// One sample block of a frame: 16-bit, or the upper 8 bits.
void store(const Attributes& a, uint32_t physical, std::span<const int16_t> samples)
{
    uint8_t* at = zone_at(physical);
    if (!at) return;
    for (size_t i = 0; i < samples.size(); ++i) {
        if (a.bit_width == 0)
            at[i] = uint8_t(uint16_t(samples[i]) >> 8);
        else
            reinterpret_cast<int16_t*>(at)[i] = samples[i];
    }
}

Frame frame_at(const AiDevice& d, uint32_t number, uint32_t physical)
{
    const Attributes& a = d.attributes;
    const auto us = uint64_t(start_of(d, number) / 1000);
    Frame f = {};
    f.bit_width = a.bit_width;
    f.sound_mode = a.sound_mode;
    f.physical[0] = physical;
    if (a.sound_mode == kStereo) f.physical[1] = physical + 2 * a.points;
    f.time_low = uint32_t(us);
    f.time_high = uint32_t(us >> 32);
    f.sequence = number;
    f.length = a.points << a.bit_width;
    f.pool = d.pool;
    return f;
}

// The way from the loudspeaker to the inputs: a file in the camera's folder with its length in milliseconds.
uint32_t read_loop()
{
    const std::string said = raw::read_text(state::path("loop"));
    const unsigned long ms = strtoul(said.c_str(), nullptr, 10);
    return said.empty() || ms > kLongestLoop ? 0 : uint32_t(ms) + 1;
}

// Adds what the loudspeaker played a way's time ago, if it plays at the input's rate.
void add_loop(const Page& page, const AiDevice& d, uint32_t number, std::span<int16_t> samples)
{
    if (!d.loop_ms || !page.speaker_slot) return;
    const uint32_t slot = page.speaker_slot - 1;
    if (!page.ao[slot].enabled || page.ao_device[device_of(slot)].attributes.rate != d.attributes.rate)
        return;
    int16_t heard[kMaxPoints] = {};
    const Ns way = Ns(d.loop_ms - 1) * (clock::kSecond / 1000);
    played(page, slot, start_of(d, number) - way, std::span(heard, samples.size()));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = int16_t(std::clamp(samples[i] + heard[i], -32768, 32767));
}

void fill(Page& page, uint32_t slot, uint32_t number, const Frame& f)
{
    const Attributes& a = page.ai_device[device_of(slot)].attributes;
    int16_t samples[kMaxPoints];
    for (uint32_t side = 0; side <= a.sound_mode; ++side) {
        const std::span<int16_t> part(samples, a.points);
        hear(page, slot, number, side, part);
        store(a, f.physical[side], part);
    }
}

// What the output channel played while the frame was taken, if it plays at the frame's rate.
Echo echo_of(Page& page, uint32_t slot, uint32_t number, const Frame& f)
{
    const AiDevice& d = page.ai_device[device_of(slot)];
    AiChannel& c = page.ai[slot];
    Echo echo = {};
    const AoDevice& out = page.ao_device[c.aec_device];
    const uint32_t out_slot = c.aec_device * kChannels + c.aec_channel;
    if (!c.aec || !out.enabled || !page.ao[out_slot].enabled || out.attributes.rate != d.attributes.rate)
        return echo;
    int16_t samples[kMaxPoints] = {};
    const std::span<int16_t> part(samples, d.attributes.points);
    played(page, out_slot, start_of(d, number), part);
    echo.frame = f;
    echo.frame.sound_mode = kMono;
    echo.frame.physical[0] = f.physical[0] + 2 * d.attributes.points * (kBlocksOfFrame / 2);
    echo.frame.physical[1] = 0;
    echo.valid = 1;
    store(d.attributes, echo.frame.physical[0], part);
    ++c.echoes;
    return echo;
}

void free_waiting(Page& page, uint32_t slot)
{
    AiChannel& c = page.ai[slot];
    Pool* pool = pool_at(page, page.ai_device[device_of(slot)].pool);
    for (; c.count; --c.count, c.head = (c.head + 1) % kMaxFrames)
        if (pool) free_block(*pool, c.ring[c.head].block);
}

} // namespace

void hear(Page& page, uint32_t slot, uint32_t number, uint32_t side, std::span<int16_t> out)
{
    const AiDevice& d = page.ai_device[device_of(slot)];
    const Attributes& a = d.attributes;
    wav::resample(microphone(), slot % kChannels * (a.sound_mode + 1) + side, a.rate,
                  int64_t(number) * a.points, out);
    add_loop(page, d, number, out);
    if (side == 0) measure(page.ai[slot].level, out);
}

Ns next_frame(const Page& page, uint32_t slot)
{
    const AiChannel& c = page.ai[slot];
    return c.enabled ? start_of(page.ai_device[device_of(slot)], int64_t(c.passed) + 1) : kNever;
}

bool pass(Page& page, uint32_t slot)
{
    const uint32_t number = page.ai[slot].passed++;
    return keep(page, slot, number);
}

int start_input(Page& page, uint32_t device)
{
    AiDevice& d = page.ai_device[device];
    if (d.enabled) return 0;
    if (!page.sys.ready || !page.vb.ready) return coded(kModAi, kNotReady);
    if (!d.configured) return coded(kModAi, kNotConfigured);
    const Attributes& a = d.attributes;
    const uint32_t blocks = std::min(a.frames * a.channels, kBlocks);
    d.pool = make_pool(page, kModAi, device, 2 * a.points * kBlocksOfFrame, blocks);
    if (d.pool == kPools) return coded(kModAi, kNoMemory);
    d.enabled = 1;
    return 0;
}

int stop_input(Page& page, uint32_t device, bool by_force)
{
    AiDevice& d = page.ai_device[device];
    if (!d.enabled) return 0;
    Pool* pool = pool_at(page, d.pool);
    if (!by_force && pool && in_use(*pool, Block::user)) return coded(kModAi, kBusy);
    for (uint32_t c = 0; c < kChannels; ++c) stop_capture(page, device * kChannels + c);
    if (pool) drop_pool(*pool);
    d.enabled = 0;
    return 0;
}

int start_capture(Page& page, uint32_t slot, Ns now)
{
    AiDevice& d = page.ai_device[device_of(slot)];
    AiChannel& c = page.ai[slot];
    if (!d.enabled) return coded(kModAi, kNotPermitted);
    if (slot % kChannels >= d.attributes.channels) return coded(kModAi, kBadChannel);
    if (c.enabled) return 0;
    if (!any_channel(page, device_of(slot))) {
        d.start_ns = now;
        d.loop_ms = read_loop();
    }
    const AiChannel old = c;
    c = {};
    c.aec = old.aec, c.aec_device = old.aec_device, c.aec_channel = old.aec_channel;
    std::copy(std::begin(old.parameter), std::end(old.parameter), c.parameter);
    c.enabled = 1;
    c.passed = passed(d, now);
    return 0;
}

void stop_capture(Page& page, uint32_t slot)
{
    free_waiting(page, slot);
    page.ai[slot].enabled = 0;
    changed(page);
}

uint32_t frames_waiting(Page& page, uint32_t slot, Ns now, Ns* next)
{
    *next = kNever;
    AiChannel& c = page.ai[slot];
    if (!c.enabled) return 0;
    advance(page, slot, now);
    *next = next_frame(page, slot);
    return c.count;
}

int take_frame(Page& page, uint32_t slot, Ns now, Exchange& out, Ns* next)
{
    AiChannel& c = page.ai[slot];
    if (!c.enabled) return coded(kModAi, kNotPermitted);
    if (frames_waiting(page, slot, now, next) == 0) return 1;
    AiDevice& d = page.ai_device[device_of(slot)];
    Pool& pool = *pool_at(page, d.pool);
    const auto entry = c.ring[c.head];
    c.head = (c.head + 1) % kMaxFrames;
    --c.count;
    ++c.delivered;
    pool.state[entry.block] = Block::user;
    pool.slot[entry.block] = uint8_t(slot);
    out.frame = frame_at(d, entry.frame, physical_of(pool, entry.block));
    fill(page, slot, entry.frame, out.frame);
    out.echo = echo_of(page, slot, entry.frame, out.frame);
    return 0;
}

int give_back(Page& page, uint32_t slot, const Frame& frame)
{
    const AiDevice& d = page.ai_device[device_of(slot)];
    Pool* pool = d.enabled && frame.pool == d.pool ? pool_at(page, d.pool) : nullptr;
    const uint32_t block = pool ? block_at(*pool, frame.physical[0]) : kBlocks;
    if (block == kBlocks || pool->state[block] != Block::user || pool->slot[block] != slot)
        return coded(kModAi, kIllegal);
    free_block(*pool, block);
    ++page.ai[slot].released;
    return 0;
}

} // namespace vcam::media
