// The system driver: start and stop, time stamps, bindings, identity.
#include "sim/base/caller.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/memory.hpp"
#include "sim/models/media.hpp"
#include "sim/models/table.hpp"
#include "sim/board/registers.hpp"

#include <sys/mman.h>

namespace vcam::models {
namespace {
namespace sys_driver {

using namespace media;

enum Request : uint32_t {
    kInit = 0x5900,
    kExit = 0x5901,
    kSetConf = 0x40045902,
    kGetConf = 0x80045903,
    kSetPtsBase = 0x40085904,
    kSyncPtsBase = 0x40085905,
    kGetCurPts = 0x80085906,
    kBind = 0x40085907,
    kUnbind = 0x40085908,
    kGetBindByDest = 0xC0085909,
    kGetVirtReg = 0xC004590A,
    kGetCustomer = 0x8001590B,
    kGetDie = 0x8018590C,
};
constexpr RequestName kNames[] = {
    {kInit, "init"},          {kExit, "exit"},
    {kSetConf, "setconf"},    {kGetConf, "getconf"},
    {kSetPtsBase, "setpts"},  {kSyncPtsBase, "syncpts"},
    {kGetCurPts, "getpts"},   {kBind, "bind"},
    {kUnbind, "unbind"},      {kGetBindByDest, "getbind"},
    {kGetVirtReg, "virtreg"}, {kGetCustomer, "customer"},
    {kGetDie, "die"},
};

constexpr uint32_t kDie[6] = {0x56434D31, 0x00000001, 0x20120919, 0x00000424, 0, 0};
constexpr uint8_t kCustomer = 0;
constexpr uint32_t kAencChannels = 32, kAlignments = 1024;

constexpr int refused(uint32_t number) { return coded(kModSys, number); }

struct Pair {
    Chn *first, *second;
};

bool exists(const Chn& c)
{
    const auto device = uint32_t(c.device), channel = uint32_t(c.channel);
    if (c.module == int(kModAi) || c.module == int(kModAo)) return device < kDevices && channel < kChannels;
    return c.module == int(kModAenc) && device == 0 && channel < kAencChannels;
}

Binding* bound(Page& page, const Chn& destination)
{
    for (Binding& b : page.sys.binds)
        if (b.used && b.destination == destination) return &b;
    return nullptr;
}

int bind(Page& page, const Chn& from, const Chn& to, Ns now)
{
    if (!exists(from) || !exists(to) || from.module != int(kModAi) || to.module == int(kModAi))
        return refused(kIllegal);
    if (!page.sys.ready) return refused(kNotReady);
    if (bound(page, to)) return refused(kNotPermitted);
    Binding* free = std::find_if(std::begin(page.sys.binds), std::end(page.sys.binds),
                                 [](const Binding& b) { return !b.used; });
    if (free == std::end(page.sys.binds)) return refused(kNoMemory);
    Ns next = kNever;
    frames_waiting(page, slot_of(from), now, &next); // what has been taken by now is not for the new one
    *free = {from, to, 1, 0, 0};
    return 0;
}

int unbind(Page& page, const Chn* from, const Chn& to)
{
    if (!exists(to)) return refused(kIllegal);
    Binding* b = bound(page, to);
    if (!b) return 0;
    if (from && b->source != *from) return refused(kNotPermitted);
    *b = {};
    return 0;
}

void stop_all(Page& page, Ns now)
{
    for (uint32_t device = 0; device < kDevices; ++device) {
        stop_input(page, device, true);
        page.ai_device[device].configured = 0;
        stop_output(page, device, now);
        page.ao_device[device].configured = 0;
    }
    for (AiChannel& c : page.ai) c.aec = 0;
    for (Binding& b : page.sys.binds) b = {};
    page.sys.ready = 0;
}

// Where the asking process sees a register.
uint32_t register_address(uint32_t physical)
{
    const uint32_t base = physical & ~(kPageSize - 1);
    if (base >= kRam || registers::settle(base, kPageSize) != 0) return 0;
    const uint32_t at = views().map(base, kPageSize);
    return at ? at + (physical - base) : 0;
}

class SysDriver final : public MediaModel {
public:
    SysDriver() : MediaModel("/dev/sys", "sys", kNames) {}

private:
    int answer(int, uint32_t request, void* argument) override
    {
        switch (request) {
        case kInit:
        case kExit:
            return start(request == kInit);
        case kBind:
        case kUnbind:
        case kGetBindByDest:
            return binding(request, load<Pair>(argument));
        case kGetVirtReg: {
            const uint32_t at = register_address(load<uint32_t>(argument));
            return at ? store(argument, at) : refused(kIllegal);
        }
        case kGetCustomer:
            return store(argument, kCustomer);
        case kGetDie:
            memcpy(argument, kDie, sizeof kDie);
            return 0;
        case kSetConf:
        case kGetConf:
            return configuration(request, argument);
        default:
            return stamp(request, argument);
        }
    }

    static int start(bool on)
    {
        {
            Current page;
            if (page->sys.ready == on) return 0;
            if (on)
                page->sys.ready = 1;
            else
                stop_all(*page, page.now);
        }
        note("sys", on ? "init" : "exit");
        return 0;
    }

    static int configuration(uint32_t request, void* argument)
    {
        Locked page;
        if (request == kGetConf)
            return page->sys.configured ? store(argument, page->sys.align) : refused(kNotConfigured);
        const auto align = load<uint32_t>(argument);
        if (align < 16 || align > kAlignments || align % 16) return refused(kIllegal);
        if (page->sys.ready) return refused(kNotPermitted);
        page->sys.align = align;
        page->sys.configured = 1;
        return 0;
    }

    static int stamp(uint32_t request, void* argument)
    {
        Locked page;
        const int64_t now = clock::now_ns() / 1000;
        if (request == kGetCurPts) return store(argument, uint64_t(now + page->sys.pts_offset_us));
        page->sys.pts_offset_us = int64_t(load<uint64_t>(argument)) - now;
        return 0;
    }

    static int binding(uint32_t request, const Pair& pair)
    {
        Chn* const to_at = request == kGetBindByDest ? pair.first : pair.second;
        Chn* const from_at = request == kGetBindByDest ? pair.second : pair.first;
        if (!to_at || (!from_at && request != kUnbind)) return refused(kNull);
        Chn to = {}, from = {};
        if (!caller::load(to_at, &to, sizeof to)) return -EFAULT;
        if (from_at && request != kGetBindByDest && !caller::load(from_at, &from, sizeof from))
            return -EFAULT;
        Current page;
        if (request == kUnbind) return unbind(*page, from_at ? &from : nullptr, to);
        if (request == kBind) return bind(*page, from, to, page.now);
        const Binding* b = exists(to) ? bound(*page, to) : nullptr;
        if (!b) return refused(exists(to) ? kMissing : kIllegal);
        return caller::store(from_at, &b->source, sizeof b->source) ? 0 : -EFAULT;
    }
};

} // namespace sys_driver
} // namespace

Model& media_sys()
{
    static sys_driver::SysDriver device;
    return device;
}

} // namespace vcam::models
