// The server of the audio loop-back test: one station, its session, and the frames in both directions.
#pragma once

#include "common/base/fd.hpp"
#include "factory/audio_player.hpp"
#include "factory/audio_wire.hpp"

#include <cstdint>

namespace zep {

class AudioServer {
public:
    // Both descriptors stay the caller's: the listening socket, and one that becomes readable when the server
    // is to end.
    AudioServer(int listener, int end) : listener_(listener), end_(end) {}

    // Serves until then; every session is over when it returns.
    void run();

private:
    enum class Session { none, encode, decode };

    // A station that was refused. Its connection stays until it has read that: closing one with unread bytes
    // resets it, and the refusal is lost.
    struct Refused {
        Fd fd;
        int64_t until_ms = 0;
    };
    static constexpr size_t kMaxRefused = 4;

    // One wait, and what came of it. False when the server is to end.
    bool turn();
    [[nodiscard]] int64_t station_due_ms() const;
    [[nodiscard]] int wait_ms() const;
    void enforce_limits();
    void note_taken();
    [[nodiscard]] bool ending() const;
    void accept_station();
    [[nodiscard]] bool silent_session() const;
    void end_silent_session();
    void refuse_station(Fd coming);
    void drop_station();

    void receive();
    void handle();
    void start(bool encode);
    void stop_session();
    void input_event(short events);
    bool send_encoded();
    void count_lost(uint64_t stamp_us);
    bool session_ended(int32_t result);
    void session_failed(int32_t result);

    bool reply(const WireHeader& request, const uint32_t* words, size_t count);
    bool reply_status(const WireHeader& request);
    bool send(const void* bytes, size_t length);

    int listener_;
    int end_;
    Refused refused_[kMaxRefused];
    Fd station_;
    WireReceiver receiver_;
    int64_t since_ms_ = 0;     // when the message that is coming began, or the last one ended
    int64_t active_ms_ = 0;    // when the station last sent or took a byte
    int64_t taken_ms_ = 0;     // when it last took one, or had none to take
    uint64_t sent_bytes_ = 0;  // to the station
    uint64_t taken_bytes_ = 0; // of these
    Session session_ = Session::none;
    bool path_ = false;     // something of the audio path may be there, with a session or without one
    int input_ = -1;        // readable when an encoded frame can be had; the library's
    uint32_t rate_ = 0;     // of the session, Hz
    uint32_t sent_ = 0;     // frames
    uint32_t lost_ = 0;     // frames of the input that its driver dropped
    uint64_t stamp_us_ = 0; // of the last frame of the input
    AudioPlayer player_;
};

} // namespace zep
