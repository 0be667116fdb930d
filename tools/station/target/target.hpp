// What a line is run on: a board with a shell, wherever it stands.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace station {

using Words = std::vector<std::string>;

// How a program on the board came to its end.
struct Outcome {
    enum Kind {
        ended,       // by itself
        hung,        // reached the limit and was interrupted
        interrupted, // on the station's wish
        reset,       // the board restarted meanwhile; it can be used again
        lost,        // no board answers any more, or the connection broke
        garbled,     // the text is not what the board sent: its frame or checksum is wrong
    };
    Kind kind = ended;
    int status = 0;       // of a program that ended, as a shell counts it
    std::string out, err; // err stays empty where a board has one stream for both
    size_t dropped = 0;   // bytes of both beyond the limit
    double seconds = 0;   // of the PC, from the start of the program to its end
    std::string reason;   // of reset, lost and garbled, and of a program that does not end: one line
};

struct Limits {
    double seconds = 60;     // then the program is interrupted
    double grace_s = 10;     // from then to its end: it puts the board back as it was
    size_t bytes = 64 << 10; // kept of each stream; what follows is read, counted and dropped
};

// Called by the target while a program runs, in the caller's thread.
struct Watch {
    std::function<void(std::string_view)> output = [](auto) {}; // a piece of either stream as it comes
    std::function<bool()> tick = [] { return true; }; // ten times a second; false interrupts the program
};

// As words of a POSIX shell, each in single quotes.
std::string quoted(const Words& words);

class Target {
public:
    virtual ~Target() = default;
    Target() = default;
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    // Makes the connection: from then on programs can be run. Throws std::runtime_error with one line: what, where,
    // what to do. Once the watch says false it throws as well.
    virtual void begin(const Watch& watch) = 0;
    // Runs a program of the board to its end, found in the board's path. The words reach it as they are: a target
    // with a shell quotes them. A program that does not end within limit and grace is left behind, with a reason.
    // After an interruption, a limit or a lost connection the next run() finds a prompt or answers `lost`. Throws
    // only where the station itself fails.
    virtual Outcome run(const Words& program, const Limits& limits, const Watch& watch) = 0;
    // The command line, on this PC, of a program that talks with one of the board while that listens on the TCP port:
    // {host} and {port} are filled in. Throws std::runtime_error where there is no way.
    virtual Words beside(const Words&, int)
    {
        throw std::runtime_error(
            "this kind of target has no network by which a port of the board could be reached");
    }
    // In place of an operator's hand, where a target has one: pins and plugs of a virtual camera. The words are a
    // command of vcam and what follows the camera's name. False where only a person can do it.
    virtual bool act(const Words&) { return false; }
};

// What the command line says about the way to a board.
struct Access {
    std::string user = "root";
    std::string password_file; // its first line; never on a command line, never in a text or a log
    Words start_options;       // of vcam run, for a virtual camera that the station starts
    double connect_s = 10;     // for a connection, and for a prompt once it stands
};

// {host} and {port} among the words replaced.
Words filled(Words words, const std::string& host, int port);

// A target by its name, as "vcam:FOLDER" or "serial:/dev/ttyUSB0,115200"; the part before the colon chooses from a
// table in target.cpp. Throws cli::WrongUse for a name that will not do; connects nothing.
std::unique_ptr<Target> make_target(const std::string& name, const Access& access);

// One function a kind; address is what follows the colon.
std::unique_ptr<Target> vcam_target(const std::string& address, const Access& access);
std::unique_ptr<Target> ssh_target(const std::string& address, const Access& access);
std::unique_ptr<Target> serial_target(const std::string& address, const Access& access);
std::unique_ptr<Target> telnet_target(const std::string& address, const Access& access);

} // namespace station
