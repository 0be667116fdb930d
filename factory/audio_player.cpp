// The decoding thread of the audio loop-back test.
#include "factory/audio_player.hpp"

#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"
#include "factory/start_audio.h"
#include "mpi/src/mpi_adec.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace zep {

namespace {

// A station that is ahead by more than this has lost its clock.
constexpr uint32_t kMaxFrames = 64;
constexpr size_t kMaxBytes = 256 * 1024;
// How long a station may be silent before the file is played in its place.
constexpr int64_t kSilenceMs = 1000;
constexpr size_t kMaxSourceFrame = 960;
// Frames of the file that the output has in hand, so that a late wake-up is not heard.
constexpr int64_t kLead = 4;

class Lock {
public:
    explicit Lock(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~Lock() { pthread_mutex_unlock(&lock_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t& lock_;
};

} // namespace

AudioPlayer::AudioPlayer()
{
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC); // setting the camera's clock must not stretch a wait
    pthread_cond_init(&changed_, &attr);
    pthread_condattr_destroy(&attr);
}

bool AudioPlayer::start(const Source& source)
{
    stop();
    stopping_ = false;
    counts_ = {};
    source_ = source;
    running_ = pthread_create(&thread_, nullptr, enter, this) == 0;
    return running_;
}

void AudioPlayer::stop()
{
    {
        Lock lock(lock_);
        stopping_ = true;
        pthread_cond_broadcast(&changed_);
    }
    if (running_) {
        CutAudioOutput(); // a message may hold a minute of sound, for which the thread would wait
        pthread_join(thread_, nullptr);
    }
    running_ = false;
    while (first_) drop_oldest();
}

void AudioPlayer::push(std::span<const uint8_t> frame)
{
    Lock lock(lock_);
    ++counts_.received;
    auto* node = static_cast<Frame*>(malloc(sizeof(Frame) + frame.size()));
    if (!node || !running_) {
        free(node);
        ++counts_.dropped;
        return;
    }
    while (counts_.waiting >= kMaxFrames || (first_ && bytes_ + frame.size() > kMaxBytes)) {
        drop_oldest();
        ++counts_.dropped;
    }
    *node = {nullptr, frame.size()};
    memcpy(node + 1, frame.data(), frame.size());
    (last_ ? last_->next : first_) = node;
    last_ = node;
    bytes_ += frame.size();
    ++counts_.waiting;
    pthread_cond_broadcast(&changed_);
}

AudioPlayer::Counts AudioPlayer::counts()
{
    Lock lock(lock_);
    return counts_;
}

void AudioPlayer::drop_oldest()
{
    Frame* gone = first_;
    first_ = gone->next;
    if (!first_) last_ = nullptr;
    bytes_ -= gone->length;
    --counts_.waiting;
    free(gone);
}

AudioPlayer::Frame* AudioPlayer::next_frame(int64_t until_ms)
{
    const timespec until = {time_t(until_ms / 1000), long(until_ms % 1000) * 1'000'000};
    while (!stopping_ && !first_) {
        const int failed = until_ms == kForEver ? pthread_cond_wait(&changed_, &lock_)
                                                : pthread_cond_timedwait(&changed_, &lock_, &until);
        if (failed) return nullptr;
    }
    if (stopping_) return nullptr;
    Frame* frame = first_;
    first_ = frame->next;
    if (!first_) last_ = nullptr;
    bytes_ -= frame->length;
    --counts_.waiting;
    return frame;
}

void AudioPlayer::play(uint8_t* data, size_t length)
{
    AENC_STREAM_HEADER_S stream = {};
    stream.pu8Data = data;
    stream.u32Len = uint32_t(length);
    if (HI_MPI_ADEC_SendStream(AUDIO_PATH_CHANNEL, &stream, 1) == 0) return;
    Lock lock(lock_);
    if (!stopping_) ++counts_.damaged;
}

// One frame of the file; false at its end.
bool AudioPlayer::play_source(int fd)
{
    uint8_t frame[kMaxSourceFrame];
    const ssize_t got = read(fd, frame, source_.bytes < sizeof frame ? source_.bytes : sizeof frame);
    if (got <= 0) return false;
    play(frame, size_t(got));
    return true;
}

void* AudioPlayer::enter(void* self)
{
    static_cast<AudioPlayer*>(self)->run();
    return nullptr;
}

void AudioPlayer::run()
{
    Fd file;
    int64_t due_ms = source_.path ? monotonic_ms() + kSilenceMs : kForEver; // the file's turn
    while (true) {
        Frame* frame;
        {
            Lock lock(lock_);
            frame = next_frame(due_ms);
            if (!frame && stopping_) return;
        }
        if (frame) {
            due_ms = kForEver;
            play(reinterpret_cast<uint8_t*>(frame + 1), frame->length);
            free(frame);
            continue;
        }
        if (!file) {
            file.reset(open(source_.path, O_RDONLY | O_CLOEXEC));
            due_ms -= kLead * source_.frame_ms;
        }
        // Counted from the start: waits that each last a little longer would leave gaps.
        due_ms = file && play_source(file.get()) ? due_ms + source_.frame_ms : kForEver;
    }
}

} // namespace zep
