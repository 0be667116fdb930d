// What the models of audio input and output share.
#pragma once

#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/media.hpp"

namespace vcam::models {

// An opening is bound to a channel's slot before anything else, and a device has attributes that stay as they
// are while it is enabled.
class SoundModel : public MediaModel {
public:
    constexpr SoundModel(const char* device_path, const char* device_name, std::span<const RequestName> names,
                         uint32_t bind_request, uint32_t module)
        : MediaModel(device_path, device_name, names), name_(device_name), bind_request_(bind_request),
          module_(module)
    {
    }
    bool has_readiness() const override { return true; }

protected:
    ~SoundModel() = default;

    virtual int on_slot(uint32_t slot, uint32_t request, void* argument) = 0;
    // Whether the journal gets a line when the request is granted.
    virtual bool is_journalled(uint32_t request) const = 0;

    int answer(int fd, uint32_t request, void* argument) override
    {
        using namespace media;
        if (request == bind_request_) return bind_slot(fd, load<uint32_t>(argument));
        const uint32_t slot = slot_of(fd);
        if (slot == kNoSlot) return refused(kNotReady);
        const int result = on_slot(slot, request, argument);
        if (result == 0 && is_journalled(request))
            note(name_, "%s %u %u", request_name(request), slot / kChannels, slot % kChannels);
        return result;
    }

    int refused(uint32_t number) const { return media::coded(module_, number); }

    template<class Device>
    int set_attributes(const media::Page& page, Device& device, const media::Attributes& wanted) const
    {
        using namespace media;
        if (!page.sys.ready) return refused(kNotReady);
        if (!valid(wanted)) return refused(kIllegal);
        if (device.enabled && wanted != device.attributes) return refused(kNotPermitted);
        device.attributes = wanted;
        device.configured = 1;
        return 0;
    }

    template<class Device> int get_attributes(const Device& device, void* argument) const
    {
        return device.configured ? store(argument, device.attributes) : refused(media::kNotConfigured);
    }

    // Repeats `attempt(page, now, &next)` until it is done, 0, or fails, below 0. Above 0 it sets `next` to when
    // it is tried again, unless the page changes before.
    template<class Attempt> int when_possible(Attempt attempt) const
    {
        using namespace media;
        while (true) {
            Ns next = kNever;
            uint32_t generation = 0;
            {
                Current page;
                const int result = attempt(*page, page.now, &next);
                if (result <= 0) return result;
                generation = page->head.generation;
            }
            if (!wait_for(next, generation)) return -EINTR;
        }
    }

private:
    int bind_slot(int fd, uint32_t slot) const
    {
        if (slot >= media::kSlots) return refused(media::kBadChannel);
        set_slot(fd, slot);
        return 0;
    }

    const char* name_;
    uint32_t bind_request_, module_;
};

} // namespace vcam::models
