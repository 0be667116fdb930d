// Sound in camera time: what audio input takes from the microphone's file, what audio output adds to the
// speaker's. Nothing runs in the background; each look computes what has happened since the last one.
// All under the page's lock.
#pragma once

#include "sim/clock/clock.hpp"
#include "sim/models/page.hpp"

#include <span>
#include <string>

namespace vcam::media {

constexpr Ns kNever = INT64_MAX;
constexpr uint32_t kMono = 0, kStereo = 1;

// Time that a number of samples takes, rounded up, and samples that fit into a time.
Ns time_of(int64_t samples, uint32_t rate);
int64_t samples_in(Ns time, uint32_t rate);

void measure(Level& level, std::span<const int16_t> samples);
bool valid(const Attributes& attributes);

constexpr uint32_t device_of(uint32_t slot)
{
    return slot / kChannels;
} // a slot is device * kChannels + channel

// ---- input

// The records of the audio drivers as a program of this word size lays them out.
struct Frame {
    uint32_t bit_width, sound_mode;
    uint8_t* address[2];
    uint32_t physical[2];
    uint32_t time_low, time_high, sequence; // microseconds; number of the device's frame
    uint32_t length;                        // bytes of one channel
    uint32_t pool;
    uint32_t driver;
};
struct Echo {
    Frame frame;
    uint32_t valid, driver;
};
struct Exchange {
    Frame frame;
    Echo echo;
};
static_assert(sizeof(void*) != 4 || sizeof(Exchange) == 104);

// Each gives 0 or a coded refusal.
int start_input(Page& page, uint32_t device);
int stop_input(Page& page, uint32_t device, bool by_force);
int start_capture(Page& page, uint32_t slot, Ns now);
void stop_capture(Page& page, uint32_t slot);
// The oldest frame that waits. Without one *next says when there may be one, and the result is 1.
int take_frame(Page& page, uint32_t slot, Ns now, Exchange& out, Ns* next);
int give_back(Page& page, uint32_t slot, const Frame& frame);
uint32_t frames_waiting(Page& page, uint32_t slot, Ns now, Ns* next);
// What one side of a frame of the channel holds.
void hear(Page& page, uint32_t slot, uint32_t number, uint32_t side, std::span<int16_t> out);
// When the frame that comes next has been taken: kNever without one.
Ns next_frame(const Page& page, uint32_t slot);
// That frame passes. False where programs have no room for it.
bool pass(Page& page, uint32_t slot);

// ---- output

void start_output(Page& page, uint32_t device);
void stop_output(Page& page, uint32_t device, Ns now);
int start_playing(Page& page, uint32_t slot);
void stop_playing(Page& page, uint32_t slot, Ns now);
void pause(Page& page, uint32_t slot, Ns now);
void resume(Page& page, uint32_t slot, Ns now);
void clear(Page& page, uint32_t slot, Ns now);
// Samples of all the file's channels, `points` of each. Without room for them *next says when there may be
// some, and the result is 1.
int play(Page& page, uint32_t slot, Ns now, std::span<const int16_t> samples, uint32_t points, Ns* next);
uint32_t queued(const Page& page, uint32_t slot, Ns now);
bool has_room(const Page& page, uint32_t slot, Ns now, uint32_t points, Ns* next);
std::string speaker_file(const Page& page, uint32_t slot);
// What the channel played from `from` on, silence elsewhere.
void played(const Page& page, uint32_t slot, Ns from, std::span<int16_t> out);

// ---- from input to output

// Inputs that are bound to outputs play there, frame by frame as they were taken, up to now; for one who must
// not wait, as far as a moment takes it.
void flow(Page& page, Ns now, Locked::Wait wait);
// The same, if the camera has a page and, unless it is to wait for it, nobody alive holds that now.
void catch_up(Locked::Wait wait);

// The page under its lock, with all that has happened by `now`.
class Current : public Locked {
public:
    explicit Current(Wait wait = Wait::yes) : Locked(wait), now(clock::now_ns())
    {
        if (*this) flow(**this, now, wait);
    }
    const Ns now;
};

} // namespace vcam::media
