// What is plugged into a serial port, and what it answers. The file `plugs` of the state folder has one
// line a port:  <port> <far end> [wrong@N] [lost@N] [late=MS]
//   ttyAMA1 loopback            what is sent comes back
//   ttyAMA2 loopback wrong@17   one bit of its byte 17 is wrong (counted from 0 since the port was opened)
//   ttyAMA2 block lost@9        a camera block; byte 9 of its replies does not arrive
//   ttyAMA1 nothing             as without a line
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vcam::serial {

enum class FarEnd : uint8_t { nothing, loopback, block };

struct Plug {
    FarEnd far_end = FarEnd::nothing;
    std::vector<uint32_t> wrong, lost; // bytes of the far end
    int64_t late_ms = -1;              // before a reply; -1: what is usual
};

// "" or what is wrong with the words behind the port's name.
std::string parse_plug(const std::string& words, Plug& plug);

// The words behind the port's name in the file `plugs`; "nothing" without a line.
std::string plugged(const std::string& port);

// A camera block's answer to one command. `replies` lists them, one a line: "E0: FF E0 01 00 00 00 26";
// "E0: +3500 FF ..." comes 3500 milliseconds after the request. A command without a line stays unanswered.
struct Reply {
    uint8_t command = 0;
    int64_t after_ms = 5;
    std::vector<uint8_t> bytes;
};

// "" or the first line that means nothing.
std::string parse_replies(const std::string& text, std::vector<Reply>& replies);

// The answers of the block at a port: of the file <port>.replies in the state folder, else of a 2M
// Panasonic block that sends 1080p.
std::vector<Reply> replies_of(const std::string& port);

} // namespace vcam::serial
