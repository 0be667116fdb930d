// The decoding thread of the audio loop-back test.
#include "factory/audio_player.hpp"

#include "base/mpp_lock.hpp"
#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"
#include "factory/audio_wire.h"
#include "factory/start_audio.h"
#include "mpi/src/mpi_adec.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zep {

namespace {

// How long a station may be silent before the file is played in its place.
constexpr int64_t kSilenceMs = 1000;
constexpr size_t kLongestSourceFrame = 960;
// Frames of the file that the output has in hand, so that a late wake-up is not heard.
constexpr int64_t kLead = 4;

// Only a regular file is played. A pipe is opened without waiting for its writer, and closed again.
int open_source(const char* path)
{
    Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!file || fstat(file.get(), &status) < 0 || !S_ISREG(status.st_mode)) return -1;
    return file.release();
}

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
        MutexLock locked(lock_);
        stopping_ = true;
        pthread_cond_broadcast(&changed_);
    }
    if (running_) {
        CutAudioOutput(); // a message may hold a minute of sound, for which the thread would wait
        pthread_join(thread_, nullptr);
    }
    running_ = false;
    while (first_) free(take_oldest());
}

void AudioPlayer::push(std::span<const uint8_t> message)
{
    MutexLock locked(lock_);
    ++counts_.received;
    if (message.size() > source_.longest) {
        ++counts_.damaged;
        return;
    }
    auto* node = static_cast<Message*>(malloc(sizeof(Message) + message.size()));
    if (!node || !running_) {
        free(node);
        ++counts_.dropped;
        return;
    }
    while (queued_ >= AUDIO_WIRE_QUEUE ||
           (first_ && queued_bytes_ + message.size() > AUDIO_WIRE_QUEUE_BYTES)) {
        free(take_oldest());
        ++counts_.dropped;
    }
    *node = {nullptr, message.size()};
    memcpy(node + 1, message.data(), message.size());
    (last_ ? last_->next : first_) = node;
    last_ = node;
    queued_bytes_ += message.size();
    ++queued_;
    pthread_cond_broadcast(&changed_);
}

AudioPlayer::Counts AudioPlayer::counts()
{
    MutexLock locked(lock_);
    Counts counts = counts_;
    counts.waiting = queued_ + (playing_ ? 1 : 0);
    return counts;
}

AudioPlayer::Message* AudioPlayer::take_oldest()
{
    Message* oldest = first_;
    first_ = oldest->next;
    if (!first_) last_ = nullptr;
    queued_bytes_ -= oldest->length;
    --queued_;
    return oldest;
}

AudioPlayer::Message* AudioPlayer::next_message(int64_t until_ms)
{
    const timespec until = {time_t(until_ms / 1000), long(until_ms % 1000) * 1'000'000};
    while (!stopping_ && !first_) {
        const int failed = until_ms == kForEver ? pthread_cond_wait(&changed_, &lock_)
                                                : pthread_cond_timedwait(&changed_, &lock_, &until);
        if (failed) return nullptr;
    }
    return stopping_ ? nullptr : take_oldest();
}

// What is cut off by stop() is neither damaged nor unheard.
void AudioPlayer::play(uint8_t* data, size_t length)
{
    AENC_STREAM_HEADER_S stream = {};
    stream.pu8Data = data;
    stream.u32Len = uint32_t(length);
    const bool whole = HI_MPI_ADEC_SendStream(AUDIO_PATH_CHANNEL, &stream, 1) == 0;
    ADEC_CHN_STAT_S stat = {};
    const bool counted = HI_MPI_ADEC_GetChnStat(AUDIO_PATH_CHANNEL, &stat) == 0;
    MutexLock locked(lock_);
    if (stopping_) return;
    if (!whole) ++counts_.damaged;
    if (counted) counts_.unheard = stat.u32Unheard; // the channel is as old as the session
}

// One frame of the file; false at its end.
bool AudioPlayer::play_source(int fd)
{
    uint8_t frame[kLongestSourceFrame];
    const ssize_t got =
        read(fd, frame, source_.frame_bytes < sizeof frame ? source_.frame_bytes : sizeof frame);
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
        Message* message;
        {
            MutexLock locked(lock_);
            playing_ = false;
            message = next_message(due_ms);
            if (!message && stopping_) return;
            playing_ = message != nullptr;
        }
        if (message) {
            due_ms = kForEver;
            play(reinterpret_cast<uint8_t*>(message + 1), message->length);
            free(message);
            continue;
        }
        if (!file) {
            file.reset(open_source(source_.path));
            due_ms -= kLead * source_.frame_ms;
        }
        // Counted from the start: waits that each last a little longer would leave gaps.
        due_ms = file && play_source(file.get()) ? due_ms + source_.frame_ms : kForEver;
    }
}

} // namespace zep
