// One signal policy for all tests that change the board, and one test at a time on each part of it.
#include "factory/board_guard.hpp"
#include "factory/verdict.hpp"

#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"
#include "common/base/shell.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

namespace zep {

namespace {

constexpr int64_t kSliceMs = 100; // a signal just before the sleep is seen after it
constinit volatile sig_atomic_t came = 0;

void note_signal(int number)
{
    if (!came) came = number;
}

void sleep_ms(int64_t ms)
{
    const timespec length = {time_t(ms / 1000), long(ms % 1000 * 1'000'000)};
    nanosleep(&length, nullptr);
}

// "test_led", as the kernel knows the process; "?" when it is gone.
void name_of(pid_t pid, char (&name)[32])
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/comm", int(pid));
    const Fd file(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t length = file ? read(file.get(), name, sizeof name - 1) : -1;
    name[std::max<ssize_t>(length, 0)] = '\0';
    name[strcspn(name, "\n")] = '\0';
    if (!*name) strcpy(name, "?");
}

} // namespace

BoardGuard::BoardGuard()
{
    came = 0;
    struct sigaction action = {};
    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART; // requests to the drivers go on; a sleep never does
    for (size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
}

void BoardGuard::end()
{
    if (!active_) return;
    active_ = false;
    fflush(stdout); // a reader that has gone is noted too
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &before_[i], nullptr);
    if (came) raise(int(came));
}

int BoardGuard::verdict(bool passed)
{
    end();
    return print_verdict(passed);
}

void BoardGuard::give_up()
{
    end();
    exit(-1);
}

bool BoardGuard::interrupted() { return came != 0; }

bool BoardGuard::pause_ms(int64_t ms)
{
    const int64_t end = monotonic_ms() + ms;
    for (int64_t left = ms; left > 0 && !came; left = end - monotonic_ms())
        sleep_ms(std::min(left, kSliceMs));
    return !came;
}

void BoardGuard::pause_whole_ms(int64_t ms)
{
    const int64_t end = monotonic_ms() + ms;
    for (int64_t left = ms; left > 0; left = end - monotonic_ms()) sleep_ms(left);
}

void BoardGuard::run_shell(const char* line)
{
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    sigaddset(&held, SIGINT);
    sigaddset(&held, SIGQUIT);
    sigprocmask(SIG_BLOCK, &held, &before);
    zep::run_shell(line);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

bool claim_board(int fd, int64_t place, const char* test)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = off_t(place);
    lock.l_len = 1;
    if (fcntl(fd, F_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES)) return true;
    if (fcntl(fd, F_GETLK, &lock) < 0 || lock.l_type == F_UNLCK) lock.l_pid = 0; // it has just ended
    char name[32];
    name_of(lock.l_pid, name);
    warn("%s: process %d (%s) has the board", test, int(lock.l_pid), name);
    return false;
}

} // namespace zep
