// The audio output driver.
#include "sim/base/caller.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/media_sound.hpp"
#include "sim/models/table.hpp"

#include <poll.h>
#include <unistd.h>
#include <vector>

namespace vcam::models {
namespace {
namespace ao_driver {

using namespace media;

enum Request : uint32_t {
    kBindSlot = 0x40045800,
    kSetAttributes = 0x40245801,
    kGetAttributes = 0x80245802,
    kEnable = 0x5803,
    kDisable = 0x5804,
    kSendFrame = 0x40305805,
    kEnableChannel = 0x5808,
    kDisableChannel = 0x5809,
    kPauseChannel = 0x580A,
    kResumeChannel = 0x580B,
    kClear = 0x580E,
};
constexpr RequestName kNames[] = {
    {kBindSlot, "bindslot"},
    {kSetAttributes, "setattr"},
    {kGetAttributes, "getattr"},
    {kEnable, "enable"},
    {kDisable, "disable"},
    {kSendFrame, "send"},
    {kEnableChannel, "enablechn"},
    {kDisableChannel, "disablechn"},
    {kPauseChannel, "pause"},
    {kResumeChannel, "resume"},
    {kClear, "clear"},
};

// One sample block in 16 bits.
bool read_side(const Frame& f, uint32_t side, std::vector<int16_t>& out)
{
    out.resize(f.bit_width ? f.length / 2 : f.length);
    if (f.bit_width) return caller::load(f.address[side], out.data(), f.length);
    std::vector<uint8_t> narrow(f.length);
    if (!caller::load(f.address[side], narrow.data(), f.length)) return false;
    for (size_t i = 0; i < narrow.size(); ++i) out[i] = int16_t(uint16_t(narrow[i] << 8));
    return true;
}

// The frame as the device's channels want it: both sides from one, or the left one of two.
bool read_frame(const Frame& f, uint32_t channels, std::vector<int16_t>& out)
{
    std::vector<int16_t> left, right;
    if (!read_side(f, 0, left)) return false;
    if (channels == 1) {
        out = std::move(left);
        return true;
    }
    if (f.sound_mode == kStereo && !read_side(f, 1, right)) return false;
    out.resize(2 * left.size());
    for (size_t i = 0; i < left.size(); ++i) {
        out[2 * i] = left[i];
        out[2 * i + 1] = f.sound_mode == kStereo ? right[i] : left[i];
    }
    return true;
}

class AoDriver final : public SoundModel {
public:
    AoDriver() : SoundModel("/dev/ao", "ao", kNames, kBindSlot, kModAo) {}
    Readiness readiness(int fd) override
    {
        const uint32_t slot = slot_of(fd);
        if (slot == kNoSlot) return {};
        Current page;
        if (!page->ao[slot].enabled) return {};
        const uint32_t points = page->ao_device[slot / kChannels].attributes.points;
        Readiness r;
        if (has_room(*page, slot, page.now, points, &r.changes_ns))
            r.events = POLLOUT | POLLWRNORM;
        else
            ++page->ao[slot].full;
        return r;
    }
    size_t record_size(uint32_t request) const override
    {
        return request == kSendFrame ? sizeof(Frame) : size_of(request);
    }

private:
    bool is_journalled(uint32_t request) const override
    {
        return request != kSetAttributes && request != kGetAttributes && request != kSendFrame;
    }

    int on_slot(uint32_t slot, uint32_t request, void* argument) override
    {
        if (request == kSendFrame) return send(slot, load<Frame>(argument));
        Current page;
        AoDevice& d = page->ao_device[slot / kChannels];
        switch (request) {
        case kSetAttributes:
            return set_attributes(*page, d, load<Attributes>(argument));
        case kGetAttributes:
            return get_attributes(d, argument);
        case kEnable:
            if (!page->sys.ready) return refused(kNotReady);
            if (!d.configured) return refused(kNotConfigured);
            start_output(*page, slot / kChannels);
            return 0;
        case kDisable:
            stop_output(*page, slot / kChannels, page.now);
            return 0;
        case kEnableChannel:
            return start_playing(*page, slot);
        case kDisableChannel:
            stop_playing(*page, slot, page.now);
            return 0;
        default:
            return on_channel(*page, slot, request, page.now);
        }
    }

    int on_channel(Page& page, uint32_t slot, uint32_t request, Ns now) const
    {
        if (!page.ao[slot].enabled) return refused(kNotPermitted);
        if (request == kPauseChannel) pause(page, slot, now);
        if (request == kResumeChannel) resume(page, slot, now);
        if (request == kClear) clear(page, slot, now);
        return 0;
    }

    // Waits until the frame has room.
    int send(uint32_t slot, const Frame& frame) const
    {
        uint32_t channels = 1;
        {
            Locked page;
            if (!page->ao[slot].enabled) return refused(kNotPermitted);
            channels = page->ao[slot].file_channels;
        }
        const uint32_t width = frame.bit_width == 0 ? 1 : 2;
        if (frame.bit_width > 1 || frame.sound_mode > kStereo || frame.length == 0 ||
            frame.length > 2 * width * kMaxPoints * 3 || frame.length % width)
            return refused(kIllegal);
        std::vector<int16_t> samples;
        if (!read_frame(frame, channels, samples)) return -EFAULT;
        bool waits = false;
        return when_possible([&](Page& page, Ns now, Ns* next) {
            const int result = play(page, slot, now, samples, uint32_t(samples.size() / channels), next);
            if (result > 0 && !waits) ++page.ao[slot].full;
            waits = true;
            return result;
        });
    }
};

} // namespace ao_driver
} // namespace

Model& media_ao()
{
    static ao_driver::AoDriver device;
    return device;
}

} // namespace vcam::models
