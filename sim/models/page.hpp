// What the media drivers know, in one page that all processes of a camera share: the drivers of a real
// camera are one kernel, whoever asks them.
//
// All zero is the state of a camera that has just been powered on. The layout is the same in 64-bit and
// 32-bit processes.
#pragma once

#include "sim/models/shared_page.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vcam::media {

typedef int64_t Ns __attribute__((aligned(8))); // camera time

constexpr uint32_t kModVb = 1, kModSys = 2, kModAi = 21, kModAo = 22, kModAenc = 23, kModAdec = 24;

// Error numbers of the drivers; they come back from a request as they are, not through errno.
enum Refusal : uint32_t {
    kBadDevice = 0x1,
    kBadChannel = 0x2,
    kIllegal = 0x3,
    kMissing = 0x5,
    kNull = 0x6,
    kNotConfigured = 0x7,
    kNotPermitted = 0x9,
    kNoMemory = 0xC,
    kNotReady = 0x10,
    kBusy = 0x12,
};
constexpr int coded(uint32_t module, uint32_t number) { return int(0xA0008000u | module << 16 | number); }

constexpr uint32_t kDevices = 3, kChannels = 16, kSlots = kDevices * kChannels;
constexpr uint32_t kPools = 128, kBlocks = 1024, kCommonPools = 8, kMmzBlocks = 64, kBinds = 96;
constexpr uint32_t kMaxFrames = 50, kMaxPoints = 2048, kSegments = 32;

// The address of a channel, as the bind requests carry it.
struct Chn {
    int32_t module, device, channel;
    bool operator==(const Chn&) const = default;
};
constexpr uint32_t slot_of(const Chn& c) { return uint32_t(c.device) * kChannels + uint32_t(c.channel); }

struct Binding {
    Chn source, destination;
    uint32_t used;
    uint32_t frames, dropped; // of an output's: what it got, what it could not take
};

struct Sys {
    uint32_t ready, align, configured, binds_used;
    Ns pts_offset_us; // time stamp - camera time
    Binding binds[kBinds];
};

enum class Block : uint8_t { free, driver, user };

struct Pool {
    uint32_t used, module, device; // whose it is: the user's for kModVb
    uint32_t common;               // made by the configuration
    uint32_t block_size, blocks, physical, most_in_use;
    Block state[kBlocks];
    uint8_t slot[kBlocks]; // of the AI channel that handed the block out
};

struct Vb {
    uint32_t ready;
    uint32_t configuration[17]; // as given
    Pool pools[kPools];
};

struct MmzBlock {
    uint32_t used, physical, size;
    char name[16], zone[16];
};

struct Level {
    uint32_t peak, rms; // of the last frame, of 32768
    uint32_t highest;   // peak since the channel was enabled
};

// The attributes of an audio device, as programs set them.
struct Attributes {
    uint32_t rate, bit_width, work_mode, sound_mode, ex_flag, frames, points, channels, clock_select;
    bool operator==(const Attributes&) const = default;
};

struct AiChannel {
    uint32_t enabled;
    uint32_t aec, aec_device, aec_channel; // reference asked for, and from where
    uint32_t parameter[2];
    uint32_t passed; // frames of the device's that have passed
    uint32_t head, count;
    struct {
        uint32_t frame, block;
    } ring[kMaxFrames];
    uint32_t delivered, released, lost, echoes;
    Level level;
};

struct AiDevice {
    Attributes attributes;
    uint32_t configured, enabled, pool;
    uint32_t loop_ms; // 1 + the time from the loudspeaker to its inputs; 0 without a way
    Ns start_ns;      // of its sample 0: when the first channel was enabled
};

// A stretch of samples that were played without a pause.
struct Segment {
    Ns start_ns;
    uint32_t first, samples; // in the speaker's file
};

struct AoChannel {
    uint32_t enabled, paused, waiting; // samples that wait in a paused channel
    uint32_t written;                  // samples in the speaker's file
    uint32_t file;                     // 1: the speaker's own, 2: one of the channel's
    uint32_t file_rate, file_channels;
    uint32_t segment_count; // all since the start; the last kSegments are kept
    Segment segments[kSegments];
    uint32_t frames, underruns, full, cleared;
    uint32_t fed;   // a frame has come since the channel was enabled, cleared or paused
    uint32_t bound; // frames that came over a binding
    Level level;
    uint32_t pad2;
};

struct AoDevice {
    Attributes attributes;
    uint32_t configured, enabled;
};

// Bits as programs name them, one byte a request.
struct Acodec {
    uint32_t resets, requests; // loads of its module, requests since
    uint8_t setting[16];       // by request number
    uint8_t known[16];
};

struct Log {
    uint32_t wait;
    struct {
        int32_t module, level;
        char name[16];
    } levels[41];
};

struct Page {
    PageHead head;         // its generation: changes with every change that a waiter may wait for
    uint32_t touched;      // some media driver has been used
    uint32_t speaker_slot; // 1 + slot that the speaker's file belongs to
    Acodec acodec;
    Log log;
    alignas(8) Sys sys;
    alignas(8) Vb vb;
    MmzBlock mmz[kMmzBlocks];
    alignas(8) AiDevice ai_device[kDevices];
    AiChannel ai[kSlots];
    alignas(8) AoDevice ao_device[kDevices];
    alignas(8) AoChannel ao[kSlots];
};
static_assert(sizeof(Page) == 324296);

// The page of the state folder's camera under its lock.
class Locked {
public:
    using Wait = SharedPage::Wait;
    explicit Locked(Wait wait = Wait::yes);
    ~Locked();
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    explicit operator bool() const { return page_; } // false only where it must not wait
    Page* operator->() const { return page_; }
    Page& operator*() const { return *page_; }

private:
    Page* page_;
};

// A copy for one who only looks, from outside the camera too. False when no media driver was ever used.
bool snapshot(Page& copy);
// A camera starts: its drivers forget, its memory is cold, nothing has been played.
void power_on();
// The file of an output channel that is not the first one to play.
std::string further_speaker_file(uint32_t slot);

// The codec chip's module was loaded: its settings are what they are after a reset.
void reset_acodec();

// Waits until something has changed since `generation`, or a moment is over. Camera time may stand still. False when a
// signal's handler has run.
bool wait_for_change(uint32_t generation);
void changed(Page& page);

} // namespace vcam::media
