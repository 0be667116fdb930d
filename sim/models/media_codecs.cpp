// The drivers that take no requests (encoder and decoder channels), the media log, and the codec chip.
#include "sim/models/media.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <unistd.h>

namespace vcam::models {
namespace {
namespace codecs_driver {

using namespace media;

class ChannelDriver final : public MediaModel {
public:
    ChannelDriver(const char* device_path, const char* device_name) : MediaModel(device_path, device_name, {})
    {
    }

private:
    int answer(int, uint32_t, void*) override { return -ENOTTY; }
};

// ---- the media log: what the models note, one line an event

enum LogRequest : uint32_t { kSetLevel = 0x40184C00, kGetLevel = 0xC0184C01, kSetWait = 0x40044C03 };
constexpr RequestName kLogNames[] = {{kSetLevel, "setlevel"}, {kGetLevel, "getlevel"}, {kSetWait, "setwait"}};

struct LevelRecord {
    int32_t module, level;
    char name[16];
};

class LogDriver final : public MediaModel {
public:
    LogDriver() : MediaModel("/dev/log", "log", kLogNames) {}
    std::string backing() const override { return state::path("media.log"); }
    // With the wait flag set it waits for a line.
    ssize_t read(int fd, void* data, size_t size) override
    {
        while (true) {
            const ssize_t n = raw::read(fd, data, size);
            if (n != 0 || size == 0) return n < 0 ? -errno : n;
            uint32_t generation = 0;
            {
                Locked page;
                if (!page->log.wait) return 0;
                generation = page->head.generation;
            }
            if (!wait_for_change(generation)) return -EINTR;
        }
    }

private:
    int answer(int, uint32_t request, void* argument) override
    {
        Locked page;
        if (request == kSetWait) {
            page->log.wait = load<uint32_t>(argument);
            return 0;
        }
        auto record = load<LevelRecord>(argument);
        if (record.module < 0 || record.module >= int(std::size(page->log.levels))) return -EINVAL;
        auto& kept = page->log.levels[record.module];
        if (request == kSetLevel) {
            kept.level = record.level;
            memcpy(kept.name, record.name, sizeof kept.name);
            return 0;
        }
        record.level = kept.level;
        memcpy(record.name, kept.name, sizeof record.name);
        return store(argument, record);
    }
};

// ---- the codec chip: of each record, the request's own bits go to the chip, the others stay with the caller

struct Setting {
    uint32_t number;
    const char* name;
    uint8_t byte, mask;
};
constexpr Setting kSettings[] = {
    {1, "rate", 2, 0xF8}, {2, "input", 3, 0x06}, {5, "micl", 4, 0x1F}, {6, "micr", 4, 0x1F},
    {7, "dacl", 0, 0x7F}, {8, "dacr", 0, 0x7F},  {9, "adcl", 0, 0x7F}, {10, "adcr", 0, 0x7F},
};
constexpr uint32_t kAcodec = 0xC0084100;
constexpr RequestName kAcodecNames[] = {
    {kAcodec + 1, "rate"}, {kAcodec + 2, "input"}, {kAcodec + 5, "micl"}, {kAcodec + 6, "micr"},
    {kAcodec + 7, "dacl"}, {kAcodec + 8, "dacr"},  {kAcodec + 9, "adcl"}, {kAcodec + 10, "adcr"},
};

class AcodecDriver final : public MediaModel {
public:
    AcodecDriver() : MediaModel("/dev/acodec", "acodec", kAcodecNames) {}

private:
    int answer(int, uint32_t request, void* argument) override
    {
        for (const Setting& s : kSettings) {
            if (kAcodec + s.number != request) continue;
            const auto value = uint8_t(static_cast<const uint8_t*>(argument)[s.byte] & s.mask);
            {
                Locked page;
                page->acodec.setting[s.number] = value;
                page->acodec.known[s.number] = 1;
                ++page->acodec.requests;
            }
            note("acodec", "%s 0x%02x", s.name, value);
        }
        return 0;
    }
};

} // namespace codecs_driver
} // namespace

Model& media_aenc()
{
    static codecs_driver::ChannelDriver device("/dev/aenc", "aenc");
    return device;
}

Model& media_adec()
{
    static codecs_driver::ChannelDriver device("/dev/adec", "adec");
    return device;
}

Model& media_log()
{
    static codecs_driver::LogDriver device;
    return device;
}

Model& acodec()
{
    static codecs_driver::AcodecDriver device;
    return device;
}

} // namespace vcam::models
