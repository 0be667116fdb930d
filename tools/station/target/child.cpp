// A program of the PC that stands for one on the board.
#include "tools/station/target/child.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace station {
namespace {

constexpr int kTickMs = 100;

[[noreturn]] void fail_errno(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + strerror(error));
}

struct SpawnActions {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    SpawnActions()
    {
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
        sigset_t none, usual;
        sigemptyset(&none);
        sigemptyset(&usual);
        for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) sigaddset(&usual, number);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes,
                                 POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
};

} // namespace

std::string host_tool(const std::string& name)
{
    std::error_code error;
    const auto beside = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
    return access(beside.c_str(), X_OK) == 0 ? beside.string() : name;
}

Pipe::Pipe()
{
    if (pipe2(fd, O_CLOEXEC) < 0) fail_errno("no pipe", errno);
}

Pipe::~Pipe()
{
    for (int end : fd)
        if (end >= 0) close(end);
}

int Pipe::take(int end)
{
    const int taken = fd[end];
    fd[end] = -1;
    return taken;
}

Child::Child(const Words& words, int in_fd)
{
    SpawnActions actions;
    Pipe out, err;
    if (in_fd < 0)
        posix_spawn_file_actions_addopen(&actions.files, 0, "/dev/null", O_RDONLY, 0);
    else
        posix_spawn_file_actions_adddup2(&actions.files, in_fd, 0);
    posix_spawn_file_actions_adddup2(&actions.files, out.fd[1], 1);
    posix_spawn_file_actions_adddup2(&actions.files, err.fd[1], 2);
    std::vector<char*> argv;
    for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    if (int error = posix_spawnp(&pid_, argv[0], &actions.files, &actions.attributes, argv.data(), environ))
        fail_errno("cannot start " + words[0], error);
    fds_[0] = out.take(0);
    fds_[1] = err.take(0);
}

Child::~Child()
{
    signal(SIGKILL);
    for (int fd : fds_)
        if (fd >= 0) close(fd);
    while (status_ < 0 && status(1) < 0) {
    }
}

void Child::signal(int number) const
{
    // The group lives on in what the program has started, for as long as that holds the output; later its number may
    // be another's.
    if (pid_ <= 1) return; // never our own group, never every process
    if (status_ < 0 || fds_[0] >= 0 || fds_[1] >= 0) kill(-pid_, number);
}

int Child::status(double wait_s)
{
    const auto begin = Clock::now();
    int state = 0;
    while (status_ < 0) {
        const pid_t ended = waitpid(pid_, &state, WNOHANG);
        if (ended == pid_) status_ = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
        if (ended == pid_ || seconds_since(begin) >= wait_s) break;
        poll(nullptr, 0, 5);
    }
    return status_;
}

bool Child::read(int wait_ms, const std::function<void(std::string_view, bool)>& take)
{
    pollfd wait[2] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}};
    if (fds_[0] < 0 && fds_[1] < 0) return false;
    if (poll(wait, 2, wait_ms) <= 0) return true;
    char bytes[16384];
    for (int i = 0; i < 2; ++i) {
        if (fds_[i] < 0 || !wait[i].revents) continue;
        const ssize_t n = ::read(fds_[i], bytes, sizeof bytes);
        if (n > 0) {
            take({bytes, size_t(n)}, i == 1);
        } else if (n == 0 || errno != EINTR) {
            close(fds_[i]);
            fds_[i] = -1;
        }
    }
    return true;
}

bool Child::pending() const
{
    pollfd wait[2] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}};
    poll(wait, 2, 0);
    return ((wait[0].revents | wait[1].revents) & POLLIN) != 0;
}

Outcome run_child(const Words& words, const Limits& limits, const Watch& watch, int in_fd,
                  const std::function<void(Child&, int)>& signal)
{
    Outcome outcome;
    Child child(words, in_fd);
    const auto begin = Clock::now();
    auto next_tick = begin;
    auto killed_at = Clock::time_point::max();
    const auto grace =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limits.grace_s));
    const auto take = [&](std::string_view piece, bool is_err) {
        std::string& kept = is_err ? outcome.err : outcome.out;
        const size_t fits = std::min(piece.size(), limits.bytes - kept.size());
        kept += piece.substr(0, fits);
        outcome.dropped += piece.size() - fits;
        watch.output(piece);
    };
    const auto interrupt = [&](Outcome::Kind kind) {
        outcome.kind = kind;
        signal(child, SIGINT);
        killed_at = Clock::now() + grace;
    };
    while (child.read(kTickMs, take)) {
        const auto now = Clock::now();
        // What it has left running in the background may hold the output for ever. An interrupted program is still
        // at work when vcam exec or ssh has gone.
        if (outcome.kind == Outcome::ended && child.status() >= 0 && !child.pending()) break;
        if (now >= next_tick) {
            next_tick = now + std::chrono::milliseconds(kTickMs);
            const bool go_on = watch.tick();
            if (outcome.kind == Outcome::ended && !go_on) interrupt(Outcome::interrupted);
        }
        if (outcome.kind == Outcome::ended && seconds_since(begin) > limits.seconds) interrupt(Outcome::hung);
        if (now > killed_at) {
            outcome.reason = "it did not end on an interrupt and was killed";
            signal(child, SIGKILL);
            killed_at = now + std::chrono::seconds(1);
        }
    }
    outcome.status = child.status(limits.grace_s);
    outcome.seconds = seconds_since(begin);
    return outcome;
}

} // namespace station
