// The decoding thread: a station's messages wait in a short queue and are decoded in their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <span>

namespace zep {

// One player; its operations but run() belong to one thread.
class AudioPlayer {
public:
    // Messages, but for `unheard`: frames that the output refused.
    struct Counts {
        uint32_t received, dropped, damaged, unheard;
        uint32_t waiting; // the one that is being played included
    };

    // What a session plays.
    struct Source {
        size_t longest;       // bytes of a message of the station; a longer one is damaged
        const char* path;     // played while the station sends nothing; null: silence
        uint32_t frame_bytes; // of the file, played
        uint32_t frame_ms;    // one after the other in this time
    };

    AudioPlayer();
    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    // Starts the thread; false when it cannot be made. Counts begin anew.
    bool start(const Source& source);
    // Mutes the output, joins the thread and drops queued messages.
    void stop();

    // Queues a copy. A queue that is full loses its oldest messages.
    void push(std::span<const uint8_t> message);

    Counts counts();

private:
    struct Message {
        Message* next;
        size_t length;
    };

    static void* enter(void* self);
    void run();
    static constexpr int64_t kForEver = -1;
    // Under the lock, which is released while it waits. Null: the time has come, or stop.
    Message* next_message(int64_t until_ms);
    Message* take_oldest();
    void play(uint8_t* data, size_t length);
    bool play_source(int fd);

    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_;
    pthread_t thread_ = {};
    bool running_ = false;
    // Under the lock:
    bool stopping_ = false;
    bool playing_ = false; // a message of the station is with the decoder
    Message* first_ = nullptr;
    Message* last_ = nullptr;
    uint32_t queued_ = 0;
    size_t queued_bytes_ = 0;
    Counts counts_ = {};
    Source source_ = {};
};

} // namespace zep
