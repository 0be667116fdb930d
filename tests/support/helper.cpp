// Runs inside the virtual camera for the tests.
//   listen PORT FILE COMMAND...  runs the command and writes each datagram that arrives on
//                                127.0.0.1:PORT to FILE, one a line, bytes as hex
//   flash FUNCTION ARGUMENT...   calls one of the flash functions and prints its result
#include "upgrade/cflash.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void receive(int from, FILE* to)
{
    unsigned char bytes[65536];
    ssize_t n;
    while ((n = recv(from, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0) {
        for (ssize_t i = 0; i < n; ++i) fprintf(to, "%02x", bytes[i]);
        fputc('\n', to);
    }
    fflush(to);
}

// The camera may end under the listener, so the datagrams wait in the file, not in the socket. Ends when the other
// end of the pipe is closed, with all that has arrived by then.
[[noreturn]] void keep_receiving(int from, FILE* to, int pipe)
{
    pollfd wanted[] = {{from, POLLIN, 0}, {pipe, POLLIN, 0}};
    do {
        poll(wanted, 2, -1);
        receive(from, to);
    } while (!wanted[1].revents);
    _exit(0);
}

int listen_main(int argc, char** argv)
{
    if (argc < 3) return 2;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(atoi(argv[0])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    FILE* to = fopen(argv[1], "w");
    if (!to || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) return 3;
    int alive[2];
    if (pipe2(alive, O_CLOEXEC) < 0) return 3;
    const pid_t listener = fork();
    if (listener == 0) {
        close(alive[1]);
        keep_receiving(fd, to, alive[0]);
    }
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(alive[1]);
    waitpid(listener, nullptr, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

int flash_main(int argc, char** argv)
{
    std::string function = argc > 0 ? argv[0] : "";
    auto argument = [&](int i) { return i < argc && strcmp(argv[i], "null") != 0 ? argv[i] : nullptr; };
    auto number = [&](int i) { return i < argc ? strtoll(argv[i], nullptr, 0) : 0; };
    int result = -99;
    if (function == "erase") result = CFlash_Erase(argument(1));
    if (function == "nand_erase") result = CFlash_Nand_Erase(argument(1));
    if (function == "write") result = CFlash_NWrite(argument(1), argument(2), number(3), uint32_t(number(4)));
    if (function == "confirm")
        result = CFlash_Confirm(argument(1), argument(2), number(3), uint32_t(number(4)));
    if (function == "check") result = CFlash_CheckPackage(argument(1));
    printf("= %d\n", result);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && strcmp(argv[1], "listen") == 0) return listen_main(argc - 2, argv + 2);
    if (argc > 1 && strcmp(argv[1], "flash") == 0) return flash_main(argc - 2, argv + 2);
    return 2;
}
