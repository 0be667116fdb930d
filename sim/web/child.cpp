// Programs that the server starts. They get none of its descriptors.
#include "sim/web/child.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam::web {
namespace {

// Memory that a program writes into as into a file.
class Sheet {
public:
    Sheet() : fd_(memfd_create("output", MFD_CLOEXEC)) {}
    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] std::string text(size_t most) const
    {
        lseek(fd_.get(), 0, SEEK_SET);
        std::string all = read_all(fd_.get(), "output");
        if (all.size() > most) all.resize(most);
        return all;
    }

private:
    Fd fd_;
};

} // namespace

pid_t start(const Words& words, int in, int out, int err)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int fds[] = {in, out, err};
    for (int i = 0; i < 3; ++i)
        if (fds[i] < 0)
            posix_spawn_file_actions_addopen(&actions, i, "/dev/null", O_RDWR, 0);
        else
            posix_spawn_file_actions_adddup2(&actions, fds[i], i);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    // The server waits for its signals in one thread; a camera's programs must get theirs.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, usual;
    sigemptyset(&none);
    sigfillset(&usual);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::vector<char*> argv;
    for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error) fail("cannot start %s: %s", argv[0], strerror(error));
    return pid;
}

int status_of(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Output capture(const Words& words, size_t most)
{
    const Sheet out, err;
    Output result;
    result.status = status_of(start(words, -1, out.fd(), err.fd()));
    result.out = out.text(most);
    result.err = err.text(most);
    return result;
}

} // namespace vcam::web
