// The audio input driver.
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/media_sound.hpp"
#include "sim/models/table.hpp"

#include <poll.h>

namespace vcam::models {
namespace {
namespace ai_driver {

using namespace media;

enum Request : uint32_t {
    kBindSlot = 0x40045A00,
    kSetAttributes = 0x40245A01,
    kGetAttributes = 0x80245A02,
    kEnable = 0x5A03,
    kDisable = 0x5A04,
    kGetPool = 0x80045A05,
    kGetParameter = 0x80085A06,
    kSetParameter = 0x40085A07,
    kGetFrame = 0x80685A08,
    kReleaseFrame = 0x40685A09,
    kEnableAec = 0x40085A0A,
    kDisableAec = 0x5A0B,
    kEnableChannel = 0x5A0C,
    kDisableChannel = 0x5A0D,
};
constexpr RequestName kNames[] = {
    {kBindSlot, "bindslot"},       {kSetAttributes, "setattr"},     {kGetAttributes, "getattr"},
    {kEnable, "enable"},           {kDisable, "disable"},           {kGetPool, "getpool"},
    {kGetParameter, "getparam"},   {kSetParameter, "setparam"},     {kGetFrame, "getframe"},
    {kReleaseFrame, "release"},    {kEnableAec, "enableaec"},       {kDisableAec, "disableaec"},
    {kEnableChannel, "enablechn"}, {kDisableChannel, "disablechn"},
};

struct AecSource {
    uint32_t device, channel;
};

class AiDriver final : public SoundModel {
public:
    AiDriver() : SoundModel("/dev/ai", "ai", kNames, kBindSlot, kModAi) {}
    Readiness readiness(int fd) override
    {
        const uint32_t slot = slot_of(fd);
        if (slot == kNoSlot) return {};
        Current page;
        Readiness r;
        if (frames_waiting(*page, slot, page.now, &r.changes_ns)) r.events = POLLIN | POLLRDNORM;
        return r;
    }
    size_t record_size(uint32_t request) const override
    {
        return request == kGetFrame || request == kReleaseFrame ? sizeof(Exchange) : size_of(request);
    }

private:
    bool is_journalled(uint32_t request) const override
    {
        return request == kEnable || request == kDisable || request == kEnableChannel ||
               request == kDisableChannel;
    }

    int on_slot(uint32_t slot, uint32_t request, void* argument) override
    {
        if (request == kGetFrame) return get_frame(slot, argument);
        Current page;
        AiDevice& d = page->ai_device[slot / kChannels];
        switch (request) {
        case kSetAttributes:
            return set_attributes(*page, d, load<Attributes>(argument));
        case kGetAttributes:
            return get_attributes(d, argument);
        case kEnable:
            return start_input(*page, slot / kChannels);
        case kDisable:
            return stop_input(*page, slot / kChannels, false);
        case kGetPool:
            return d.enabled ? store(argument, d.pool) : refused(kNotPermitted);
        case kEnableChannel:
            return start_capture(*page, slot, page.now);
        case kDisableChannel:
            stop_capture(*page, slot);
            return 0;
        case kReleaseFrame:
            return give_back(*page, slot, load<Exchange>(argument).frame);
        default:
            return on_channel(page->ai[slot], request, argument);
        }
    }

    int on_channel(AiChannel& c, uint32_t request, void* argument) const
    {
        switch (request) {
        case kGetParameter:
            memcpy(argument, c.parameter, sizeof c.parameter);
            return 0;
        case kSetParameter:
            memcpy(c.parameter, argument, sizeof c.parameter);
            return 0;
        case kDisableAec:
            c.aec = 0;
            return 0;
        default:
            return enable_aec(c, load<AecSource>(argument));
        }
    }

    int enable_aec(AiChannel& c, const AecSource& from) const
    {
        if (from.device >= kDevices) return refused(kBadDevice);
        if (from.channel >= kChannels) return refused(kBadChannel);
        c.aec = 1;
        c.aec_device = from.device;
        c.aec_channel = from.channel;
        return 0;
    }

    // Waits for the next frame.
    int get_frame(uint32_t slot, void* argument) const
    {
        return when_possible([&](Page& page, Ns now, Ns* next) {
            Exchange exchange;
            const int result = take_frame(page, slot, now, exchange, next);
            return result == 0 ? store(argument, exchange) : result;
        });
    }
};

} // namespace ai_driver
} // namespace

Model& media_ai()
{
    static ai_driver::AiDriver device;
    return device;
}

} // namespace vcam::models
