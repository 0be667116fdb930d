// test_audio: the audio loop-back over the network, for one station at a time.
#include "factory/applets.h"
#include "factory/audio_server.hpp"
#include "factory/options.hpp"

#include "common/qrn_tcp.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kUsage[] =
    "usage: test_audio port [address]\n"
    "    serves one station at a time on the TCP port, 1 to 65535, of the camera's IPv4\n"
    "    address, or of all its addresses; there is no authentication\n";
constexpr int kBacklog = 10;

// Its ends: the first signal, and a pipe that ends the wait of the server's loop. A flag alone could be set just
// before the loop begins to wait.
constinit volatile sig_atomic_t ended_by = 0;
int wake_up[2] = {-1, -1};

void on_signal(int number)
{
    if (!ended_by) ended_by = number;
    const char byte = 0;
    [[maybe_unused]] ssize_t n = write(wake_up[1], &byte, 1);
}

// Signals that the caller ignores stay ignored. A reader of the console that has gone ends no session.
bool catch_signals()
{
    if (pipe2(wake_up, O_CLOEXEC | O_NONBLOCK) < 0) return false;
    struct sigaction action = {}, before = {};
    action.sa_handler = on_signal;
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    return true;
}

// SIGINT and SIGTERM are how a server is told to end: status 0. Another one ends the process.
int result_of_signal()
{
    if (ended_by == SIGHUP || ended_by == SIGQUIT) {
        struct sigaction action = {};
        action.sa_handler = SIG_DFL;
        sigaction(int(ended_by), &action, nullptr);
        raise(int(ended_by));
    }
    return 0;
}

// A listening socket of one address, or -1 with errno.
int listen_at(in_addr address, int port)
{
    zep::Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) return -1;
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(uint16_t(port));
    own.sin_addr = address;
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&own), sizeof own) < 0) return -1;
    return listen(fd.get(), kBacklog) < 0 ? -1 : fd.release();
}

int open_listener(const char* text, in_addr address, int port)
{
    if (!text) return TSER_InitServer(port);
    const int fd = listen_at(address, port);
    if (fd < 0) fprintf(stderr, "test_audio: %s port %d: %s\n", text, port, strerror(errno));
    return fd;
}

} // namespace

int test_audio_main(int argc, char** argv)
{
    int64_t port = 0;
    in_addr address = {};
    const char* const text = argc == 3 ? argv[2] : nullptr;
    if (argc < 2 || argc > 3 || !zep::parse_number(argv[1], 1, 65535, port) ||
        (text && inet_pton(AF_INET, text, &address) != 1)) {
        fputs(kUsage, stderr);
        exit(-1);
    }
    zep::Fd listener(open_listener(text, address, int(port)));
    if (!listener || !catch_signals()) {
        fflush(stdout);
        exit(-1);
    }
    printf("test_audio: port %d\n", int(port));
    fflush(stdout);
    zep::AudioServer server(listener.get(), wake_up[0]);
    server.run();
    fflush(stdout);
    return result_of_signal();
}
