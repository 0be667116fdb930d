// Stream sockets: connecting, whole transfers, time limits, peers that leave.
#include "common/qrn_socket.h"
#include "common/qrn_tcp.h"
#include "tests/support/socket_helpers.hpp"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <thread>

namespace {

using std::string;
using zep::Fd;

double seconds_of(auto&& action)
{
    auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void on_alarm(int) {}

} // namespace

TEST(Tcp, ServerAndBothKindsOfConnectionMeet)
{
    Fd server(TSER_InitServer(0));
    ASSERT_GE(server.get(), 0);
    int reuse = 0, accepting = 0;
    socklen_t size = sizeof reuse;
    getsockopt(server.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, &size);
    getsockopt(server.get(), SOL_SOCKET, SO_ACCEPTCONN, &accepting, &size);
    EXPECT_EQ(reuse, 1);
    EXPECT_EQ(accepting, 1);
    int port = port_of(server.get());

    for (const char* host : {"127.0.0.1", "localhost"}) {
        Fd waiting(QRN_ConnectTCPSocket(host, port));
        ASSERT_GE(waiting.get(), 0) << host;
        int fd = -1;
        int result = QRN_ASyncConnectTCPSocket(&fd, host, port);
        Fd started(fd);
        ASSERT_TRUE(result == 0 || result == 1);
        struct pollfd ready = {fd, POLLOUT, 0};
        EXPECT_EQ(poll(&ready, 1, 5000), 1);
        EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
        Fd first(accept(server.get(), nullptr, nullptr)), second(accept(server.get(), nullptr, nullptr));
        EXPECT_EQ(QRN_SendTCPStream(fd, "hello", 5, 0), 5);
        char text[6] = "";
        EXPECT_EQ(QRN_RecvTCPStream(second.get(), text, 5, 0), 5);
        EXPECT_STREQ(text, "hello");
    }
}

TEST(Tcp, FailuresPrintTheirLineAndCloseTheSocket)
{
    Fd server(TSER_InitServer(0));
    int port = port_of(server.get());
    string refused = "Error Number : 111, Error String : Connection refused\n";
    EXPECT_EQ(printed([&] { EXPECT_EQ(TSER_InitServer(port), -1); }),
              "[open_tcp_socket error] while bind tcp socket : Address already in use\n");
    server.reset();
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_ConnectTCPSocket("127.0.0.1", port), -1); }),
              "[QRN_ConnectTCPSocket/connect] " + refused);
    string line = printed([&] { EXPECT_EQ(QRN_ConnectTCPSocket("no such host", port), -1); });
    EXPECT_EQ(line.rfind("[QRN_ConnectTCPSocket/gethostbyname] Error Number : ", 0), 0u) << line;
    int fd = -5;
    line = printed([&] { EXPECT_EQ(QRN_ASyncConnectTCPSocket(&fd, "no such host", port), -1); });
    EXPECT_EQ(line.rfind("[QRN_ConnectTCPSocket/gethostbyname] Error Number : ", 0), 0u) << line;
    EXPECT_EQ(fd, -5);

    // A multicast address has no stream: refused at once.
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_ASyncConnectTCPSocket(&fd, "224.0.0.1", port), -1); }), "");
    line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(
        line.rfind("Error connecting on QRN_ASyncConnectTCPSocket " + std::to_string(ENETUNREACH) + " - ", 0),
        0u)
        << line;
    EXPECT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL), -1) << "the number of a closed descriptor";
}

TEST(Stream, ArgumentsAreCheckedBufferFirstThenDescriptorThenLength)
{
    char byte = 0;
    const struct {
        int fd;
        void* buffer;
        int length, result;
    } cases[] = {{-1, nullptr, 1, -4}, {0, &byte, 0, -4},  {-1, &byte, 0, -4},
                 {-1, &byte, -5, -3},  {-1, &byte, 1, -3}, {0, &byte, -5, -5}};
    for (const auto& c : cases) {
        EXPECT_EQ(QRN_SendTCPStream(c.fd, c.buffer, c.length, 1), c.result);
        EXPECT_EQ(QRN_RecvTCPStream(c.fd, c.buffer, c.length, 1), c.result);
    }
}

TEST(Stream, LargeTransfersOverNonBlockingSocketsArriveWhole)
{
    SocketPair pair;
    ASSERT_GE(QRN_SetNonBlocking(pair.near.get()), 0);
    ASSERT_GE(QRN_SetNonBlocking(pair.far.get()), 0);
    string sent(3000000, 'x'), got(sent.size(), '\0');
    for (size_t i = 0; i < sent.size(); ++i) sent[i] = char(i * 31 >> 3);
    std::thread sender(
        [&] { EXPECT_EQ(QRN_SendTCPStream(pair.near.get(), sent.data(), int(sent.size()), 30), 3000000); });
    EXPECT_EQ(QRN_RecvTCPStream(pair.far.get(), got.data(), int(got.size()), 30), 3000000);
    sender.join();
    EXPECT_EQ(got, sent);
}

TEST(Stream, AClosedPeerIsMinusTwoAndOnlyTheSenderTells)
{
    SocketPair pair;
    ASSERT_EQ(send(pair.far.get(), "ab", 2, 0), 2);
    pair.far.reset();
    char text[8];
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_RecvTCPStream(pair.near.get(), text, 8, 0), -2); }), "");
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_SendTCPStream(pair.near.get(), text, 8, 0), -2); }),
              "[QRN_SendTCPStream/send] Error Number : 32, Error String Broken pipe\n");
}

// The limit counts in whole seconds: 1 s ends after one and before two seconds. The wait sleeps.
TEST(Stream, ATimeLimitEndsWithinASecondAfterItWithoutSpinning)
{
    SocketPair pair;
    QRN_SetNonBlocking(pair.near.get());
    char text[8];
    struct timespec before, after;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    double taken = seconds_of([&] { EXPECT_EQ(QRN_RecvTCPStream(pair.near.get(), text, 8, 1), -1); });
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    EXPECT_GE(taken, 0.99);
    EXPECT_LT(taken, 60);
    double cpu = double(after.tv_sec - before.tv_sec) + double(after.tv_nsec - before.tv_nsec) / 1e9;
    EXPECT_LT(cpu, 0.2);
}

TEST(Stream, ASignalDoesNotEndATransfer)
{
    SocketPair pair;
    struct sigaction action = {}, old;
    action.sa_handler = on_alarm; // without SA_RESTART
    sigaction(SIGUSR1, &action, &old);
    pthread_t receiver = pthread_self();
    std::thread helper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pthread_kill(receiver, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(send(pair.far.get(), "12345678", 8, 0), 8);
    });
    char text[8];
    EXPECT_EQ(QRN_RecvTCPStream(pair.near.get(), text, 8, 0), 8);
    helper.join();
    sigaction(SIGUSR1, &old, nullptr);
}
