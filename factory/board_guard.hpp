// One signal policy for all tests that change the board, and one test at a time on each part of it.
#pragma once

#include <csignal>
#include <cstdint>

namespace zep {

// While it lives, SIGINT, SIGTERM, SIGHUP, SIGQUIT and SIGPIPE are noted and end pauses, so that the test can
// put the board back. A signal that the caller ignores stays ignored. When the guard ends, the first signal
// that came ends the process as if it came then. One guard at a time; construct it before the first change and
// destroy it after the last.
class BoardGuard {
public:
    BoardGuard();
    ~BoardGuard() { end(); }
    BoardGuard(const BoardGuard&) = delete;
    BoardGuard& operator=(const BoardGuard&) = delete;

    // A signal came: leave the test, put the board back.
    static bool interrupted();

    // Sleeps. False at once when a signal came, and when one comes meanwhile.
    static bool pause_ms(int64_t ms);

    // Sleeps for the whole time: for what must be done before a signal ends the process.
    static void pause_whole_ms(int64_t ms);

    // Runs a command line through the shell. SIGINT and SIGQUIT, which the C library ignores meanwhile, are
    // noted afterwards.
    static void run_shell(const char* line);

    // The board is as it was: prints the verdict, or ends the process by the signal that came. The handler's
    // result.
    int verdict(bool passed);

    // Nothing was changed and nothing can be tested: ends the process with status 255 and no verdict, or by the
    // signal that came.
    [[noreturn]] void give_up();

    // Writes out what was printed, gives the signals back to the caller and ends the process by the one that
    // came. Later calls do nothing.
    void end();

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};
    struct sigaction before_[sizeof kSignals / sizeof kSignals[0]];
    bool active_ = true;
};

// Claims a part of the board for this process: one place, a number of the caller's choice, of an open device or
// file. The claim ends when the process closes any descriptor of that file, or ends. False when another process
// has the place; one line, which begins with `test`, says which. A file that cannot be locked counts as claimed.
bool claim_board(int fd, int64_t place, const char* test);

} // namespace zep
