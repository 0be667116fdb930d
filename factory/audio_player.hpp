// The decoding thread: what a station sends waits in a short queue and is decoded in the station's order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <span>

namespace zep {

// One player; its operations but run() belong to one thread.
class AudioPlayer {
public:
    struct Counts {
        uint32_t received, dropped, damaged, waiting;
    };

    // What is played while a station sends nothing; null: silence. `bytes` of it make a frame, every
    // `frame_ms`.
    struct Source {
        const char* path;
        uint32_t bytes;
        uint32_t frame_ms;
    };

    AudioPlayer();
    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    // Starts the thread; false when it cannot be made. Counts begin anew.
    bool start(const Source& source);
    // Ends the thread, the output with the rest of the frame it is at, and drops what waits.
    void stop();

    // Queues a copy. A queue that is full loses its oldest frames.
    void push(std::span<const uint8_t> frame);

    Counts counts();

private:
    struct Frame {
        Frame* next;
        size_t length;
    };

    static void* enter(void* self);
    void run();
    static constexpr int64_t kForEver = -1;
    // Under the lock, which is let go while it waits. Null: the time has come, or stop.
    Frame* next_frame(int64_t until_ms);
    void drop_oldest();
    void play(uint8_t* data, size_t length);
    bool play_source(int fd);

    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_;
    pthread_t thread_ = {};
    bool running_ = false;
    // Under the lock:
    bool stopping_ = false;
    Frame* first_ = nullptr;
    Frame* last_ = nullptr;
    size_t bytes_ = 0; // of the frames that wait
    Counts counts_ = {};
    Source source_ = {};
};

} // namespace zep
