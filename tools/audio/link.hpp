// The connection to a camera's test_audio.
#pragma once

#include "factory/audio_wire.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zaudio {

using Clock = std::chrono::steady_clock;

struct Message {
    uint16_t command = 0;
    uint32_t number = 0;
    std::vector<uint8_t> body;
    // Word of the body; 0 where it is too short.
    [[nodiscard]] int32_t word(size_t index) const;
};

// The camera's counts.
struct Status {
    bool running = false;
    uint32_t sent = 0, received = 0, dropped = 0, damaged = 0, waiting = 0, unheard = 0, lost = 0;
};

// A result of the camera in words: "0xa0158003, audio input: illegal parameter", "-5, Input/output error".
std::string result_text(int32_t result);

// Every failure of the connection is thrown as std::runtime_error, one line.
class Link {
public:
    // limit: for the connection and each answer; wait: to try again while the camera refuses the connection.
    Link(const std::string& host, const std::string& port, std::chrono::seconds limit,
         std::chrono::seconds wait);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    void send(uint16_t command, uint32_t number, const std::vector<uint8_t>& body = {});
    // The next message, if it comes in time.
    std::optional<Message> receive(Clock::time_point until);
    // Sends a request and waits for its reply; frames that come in between are kept for receive().
    Message ask(uint16_t command, const std::vector<uint8_t>& body = {});

    // The camera's result of the start; throws when it is not 0.
    void start(bool encode, const int32_t (&words)[AUDIO_WIRE_START_WORDS]);
    Status stop();
    Status status(Clock::duration* round_trip = nullptr);

private:
    bool fill(size_t wanted, Clock::time_point until);
    std::optional<Message> read_message(Clock::time_point until);

    int fd_ = -1;
    std::chrono::seconds limit_;
    uint32_t next_number_ = 1;
    std::vector<uint8_t> bytes_;   // read, not yet taken
    std::vector<Message> waiting_; // messages that an ask() passed by
};

} // namespace zaudio
