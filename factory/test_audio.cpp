// test_audio: the audio loop-back over the network, for one station at a time.
#include "factory/applets.h"
#include "factory/audio_server.hpp"
#include "factory/options.hpp"

#include "common/qrn_tcp.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kUsage[] = "usage: test_audio port\n"
                          "    serves one station at a time on the TCP port, 1 to 65535\n";

int wake_up[2] = {-1, -1};

// Ends the wait of the server's loop; a flag alone could be set just before it begins to wait.
void on_signal(int)
{
    const char byte = 0;
    [[maybe_unused]] ssize_t n = write(wake_up[1], &byte, 1);
}

bool catch_signals()
{
    if (pipe2(wake_up, O_CLOEXEC | O_NONBLOCK) < 0) return false;
    struct sigaction action = {};
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    return true;
}

} // namespace

int test_audio_main(int argc, char** argv)
{
    int64_t port = 0;
    if (argc != 2 || !zep::parse_number(argv[1], 1, 65535, port)) {
        fputs(kUsage, stderr);
        exit(-1);
    }
    zep::Fd listener(TSER_InitServer(int(port)));
    if (!listener || !catch_signals()) {
        fflush(stdout);
        exit(-1);
    }
    printf("test_audio: port %d\n", int(port));
    fflush(stdout);
    zep::AudioServer server(listener.get(), wake_up[0]);
    server.run();
    fflush(stdout);
    return 0;
}
