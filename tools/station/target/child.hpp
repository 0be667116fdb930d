// A program of the PC that stands for one on the board: vcam exec, ssh.
#pragma once

#include "tools/station/target/target.hpp"

#include <chrono>
#include <sys/types.h>

namespace station {

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A tool of this system: the one beside this program, else the name, which is looked for in the path.
std::string host_tool(const std::string& name);

// Ends that no program inherits: 0 for reading, 1 for writing.
struct Pipe {
    int fd[2];
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    int take(int end); // the end is the caller's now
};

// A child in a process group of its own: the terminal's Ctrl-C is the station's alone.
class Child {
public:
    // words[0] is looked for in the path. in_fd: its standard input, stays the caller's; -1 for none. Throws.
    explicit Child(const Words& words, int in_fd = -1);
    ~Child(); // kills the group where it still runs
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // To the whole group, until its output is at its end.
    void signal(int number) const;
    // As a shell counts it, once it has ended; waits at most so long. -1: it still runs.
    int status(double wait_s = 0);

    // Reads what has come, at most wait_ms later, and gives it to take(piece, is_err). False at the end of both.
    bool read(int wait_ms, const std::function<void(std::string_view, bool)>& take);
    [[nodiscard]] bool pending() const; // bytes that read() would give at once

private:
    pid_t pid_ = 0;
    int fds_[2] = {-1, -1};
    int status_ = -1;
};

// Runs it to its end, to the limit or until the watch says false: first SIGINT, after the grace SIGKILL. `signal`
// reaches the program where the child only stands for it.
Outcome run_child(
    const Words& words, const Limits& limits, const Watch& watch, int in_fd = -1,
    const std::function<void(Child&, int)>& signal = [](Child& child, int number) { child.signal(number); });

} // namespace station
