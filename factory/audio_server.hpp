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

    // One wait, and what came of it. False when the server is to end.
    bool turn();
    [[nodiscard]] int wait_ms() const;
    void check_patience();
    [[nodiscard]] bool ending() const;
    void accept_station();
    void drop_station();

    void receive();
    void handle();
    void start(bool encode);
    void stop_session();
    void input_event(short events);
    bool send_encoded();
    void session_failed(int32_t result);

    bool reply(const WireHeader& request, const uint32_t* words, size_t count);
    bool reply_status(const WireHeader& request);
    bool send(const void* bytes, size_t length);

    int listener_;
    int end_;
    Fd station_;
    WireReceiver receiver_;
    int64_t since_ms_ = 0; // when the message that is coming began, or the last one ended
    Session session_ = Session::none;
    bool path_ = false; // something of the audio path may be there, with a session or without one
    int input_ = -1;    // readable when an encoded frame can be had; the library's
    uint32_t sent_ = 0;
    AudioPlayer player_;
};

} // namespace zep
