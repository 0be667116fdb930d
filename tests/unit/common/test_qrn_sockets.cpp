// Sockets: streams over the network and on the device, datagrams, and what is told of any socket and address.
#include "common/qrn_socket.h"
#include "common/qrn_tcp.h"
#include "common/qrn_udp.h"
#include "common/qrn_uds.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <thread>

using std::string;
using zep::Fd;

TEST(Tcp, ServerAndBothKindsOfConnectionMeet)
{
    Fd server(TSER_InitServer(0));
    int reuse = 0;
    socklen_t size = sizeof reuse;
    getsockopt(server.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, &size);
    EXPECT_EQ(reuse, 1);
    const int port = port_of(server.get());
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
    const int port = port_of(server.get());
    EXPECT_EQ(printed([&] { EXPECT_EQ(TSER_InitServer(port), -1); }),
              "[open_tcp_socket error] while bind tcp socket : Address already in use\n");
    server.reset();
    int fd = -5;
    const string lines = printed([&] {
        EXPECT_EQ(QRN_ConnectTCPSocket("127.0.0.1", port), -1);
        EXPECT_EQ(QRN_ConnectTCPSocket("no such host", port), -1);
        EXPECT_EQ(QRN_ASyncConnectTCPSocket(&fd, "no such host", port), -1);
    });
    EXPECT_THAT(
        lines,
        testing::MatchesRegex(
            "\\[QRN_ConnectTCPSocket/connect\\] Error Number : 111, Error String : Connection refused\n"
            "(\\[QRN_ConnectTCPSocket/gethostbyname\\] Error Number : [0-9]+, .*\n){2}"));
    EXPECT_EQ(fd, -5);

    // A multicast address has no stream: refused at once.
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_ASyncConnectTCPSocket(&fd, "224.0.0.1", port), -1); }), "");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("Error connecting on QRN_ASyncConnectTCPSocket 101 - "));
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

TEST(Stream, LargeTransfersArriveWholeAndAClosedPeerIsMinusTwoAndOnlyTheSenderTells)
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
    ASSERT_EQ(send(pair.far.get(), "ab", 2, 0), 2);
    pair.far.reset();
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(QRN_RecvTCPStream(pair.near.get(), got.data(), 8, 0), -2);
                  EXPECT_EQ(QRN_SendTCPStream(pair.near.get(), got.data(), 8, 0), -2);
              }),
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
    EXPECT_GE(seconds_of([&] { EXPECT_EQ(QRN_RecvTCPStream(pair.near.get(), text, 8, 1), -1); }), 0.99);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    const double seconds = double(after.tv_sec - before.tv_sec);
    EXPECT_LT(seconds + double(after.tv_nsec - before.tv_nsec) / 1e9, 0.2) << "of the processor";
}

TEST(Stream, ASignalDoesNotEndATransfer)
{
    SocketPair pair;
    struct sigaction action = {}, old;
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGUSR1, &action, &old);
    std::thread helper([&, receiver = pthread_self()] {
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

TEST(Udp, LoopbackDatagramsArriveWithTheirSender)
{
    Fd server(QRN_OpenLocalUDPSSocket(0)), client(QRN_OpenLocalUDPCSocket());
    ASSERT_TRUE(server && client);
    int port = port_of(server.get());
    char text[8] = "";
    EXPECT_EQ(QRN_RecvLocalUDPData(server.get(), port, text, 8), 0) << "an empty socket answers at once";
    EXPECT_EQ(QRN_RecvUDPTimeout(server.get(), text, 8, nullptr, 0, 1000), 0);

    EXPECT_EQ(QRN_SendLocalUDPData(client.get(), port, "one", 3), 3);
    sockaddr_in sender = {};
    EXPECT_EQ(QRN_RecvUDPTimeout(server.get(), text, 8, &sender, 5, 0), 3);
    EXPECT_EQ(std::string(text, 3), "one");
    EXPECT_EQ(sender.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(ntohs(sender.sin_port), port_of(client.get()));

    EXPECT_EQ(QRN_SendUDPData(server.get(), "two and more", 12, &sender), 12);
    EXPECT_EQ(QRN_RecvUDPTimeout(client.get(), text, 8, nullptr, 5, 0), 8) << "cut to the buffer";
    EXPECT_EQ(QRN_SendLocalUDPData(client.get(), port, "", 0), 0);
    EXPECT_EQ(QRN_RecvLocalUDPData(server.get(), port, text, 8), 0);
    EXPECT_EQ(QRN_SendLocalUDPData(client.get(), port, "3", 1), 1);
    EXPECT_EQ(QRN_RecvLocalUDPData(server.get(), 0, text, -1), -1) << "a negative length is no large one";
}

TEST(Udp, FailuresPrintTheirLine)
{
    Fd first(QRN_OpenLocalUDPSSocket(0)), second(QRN_OpenLocalUDPSSocket(port_of(first.get())));
    EXPECT_TRUE(bool(second)) << "the loopback server shares its port, the open one does not";
    Fd open(openUDPSSocket(0));
    const int port = port_of(open.get());
    Fd client(QRN_OpenLocalUDPCSocket());
    sockaddr_in any = zep::inet_address(htonl(0x7F000002), port);
    char byte = 0;
    EXPECT_EQ(QRN_SendUDPData(client.get(), &byte, 1, &any), 1);
    EXPECT_EQ(QRN_RecvUDPTimeout(open.get(), &byte, 1, nullptr, 5, 0), 1) << "any address of the host";
    // A connected datagram socket learns that nobody listens: readable, and the receive fails.
    sockaddr_in nobody = zep::loopback_address(port_of(Fd(QRN_OpenLocalUDPSSocket(0)).get()));
    ASSERT_EQ(connect(client.get(), zep::as_sockaddr(nobody), sizeof nobody), 0);
    ASSERT_EQ(send(client.get(), &byte, 1, 0), 1);
    EXPECT_EQ(QRN_RecvLocalUDPData(-1, 9, &byte, 1), 0) << "not readable";
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(openUDPSSocket(port), -1);
                  EXPECT_EQ(QRN_OpenLocalUDPSSocket(port), -1);
                  EXPECT_EQ(QRN_SendLocalUDPData(-1, 9, &byte, 1), -1);
                  EXPECT_EQ(QRN_RecvLocalUDPData(client.get(), 9, &byte, 1), -1);
              }),
              "[openUDPSSocket] local bind error. exit\n"
              "[QRN_OpenLocalUDPSSocket] local bind error. exit\n"
              "[QRN_SendLocalUDPData] : error while send message : Bad file descriptor\n"
              "[QRN_RecvLocalUDPData] : error while recv message : Connection refused\n");
}

TEST(Udp, DescriptorsAboveTheRangeOfSelectWork)
{
    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    struct rlimit raised = {limit.rlim_max < 4096 ? limit.rlim_max : 4096, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    Fd low(QRN_OpenLocalUDPSSocket(0)), client(QRN_OpenLocalUDPCSocket());
    Fd high(fcntl(low.get(), F_DUPFD_CLOEXEC, 2000));
    ASSERT_GE(high.get(), 2000);
    char byte;
    EXPECT_EQ(QRN_RecvLocalUDPData(high.get(), 0, &byte, 1), 0);
    QRN_SendLocalUDPData(client.get(), port_of(low.get()), "x", 1);
    EXPECT_EQ(QRN_RecvUDPTimeout(high.get(), &byte, 1, nullptr, 5, 0), 1);
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Uds, AServerReplacesWhatStandsAtItsPathUnlessThatIsTooLong)
{
    TempFolder folder;
    const string name(folder.path().size() < 107 ? 107 - folder.path().size() : 1, 'n');
    string path = folder.write(name, "not ours"); // 108 characters
    auto failed = [](int (*function)(const char*), const string& at) {
        return printed([&] { EXPECT_EQ(function(at.c_str()), -1); });
    };
    EXPECT_EQ(failed(QRN_BindUDSSocket, path),
              "[QRN_BindUDSSocket] while bind tcp socket : File name too long\n");
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(folder.read(name), "not ours");
    EXPECT_EQ(failed(QRN_ConnectUDSSocket, path),
              "[QRN_ConnectUDSSocket] Error Number : 36, Error String : File name too long\n");
    EXPECT_EQ(failed(QRN_BindUDSSocket, folder / "no/sock"),
              "[QRN_BindUDSSocket] while bind tcp socket : No such file or directory\n");
    path.pop_back(); // 107 fit
    Fd(QRN_BindUDSSocket(path.c_str())).reset();
    Fd server(QRN_BindUDSSocket(path.c_str())), client(QRN_ConnectUDSSocket(path.c_str()));
    Fd peer(accept(server.get(), nullptr, nullptr));
    ASSERT_EQ(write(client.get(), "hi", 2), 2);
    char text[2];
    EXPECT_EQ(read(peer.get(), text, 2), 2);
}

TEST(SocketBuffer, IsRaisedOnlyAndTheSizeBeforeIsReturned)
{
    SocketPair pair(SOCK_DGRAM);
    const int fd = pair.near.get(), size = QRN_GetSocketBufferSize(fd, SO_SNDBUF), smaller = size / 4;
    for (int wanted : {size / 2, size}) EXPECT_EQ(QRN_SetSocketBufferSize(fd, wanted, SO_SNDBUF), size);
    EXPECT_EQ(QRN_GetSocketBufferSize(fd, SO_SNDBUF), size) << "nothing was set";
    ASSERT_EQ(setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &smaller, sizeof smaller), 0);
    const int before = QRN_GetSocketBufferSize(fd, SO_SNDBUF);
    EXPECT_EQ(QRN_SetSocketBufferSize(fd, before + 8192, SO_SNDBUF), before);
    EXPECT_GT(QRN_GetSocketBufferSize(fd, SO_SNDBUF), before);
    const string line = "QRN_GetSocketBufferSize error : 9, Bad file descriptor\n";
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_SetSocketBufferSize(-1, 100, SO_SNDBUF), 0); }), line + line);
    EXPECT_EQ(QRN_SetNonBlocking(-1), -1);
}

TEST(IPv4Address, IsToldByDigitsAndThreeDots)
{
    for (const char* text : {"10.0.0.1", "1..2.3", "999.999.999.999", "..."})
        EXPECT_EQ(QRN_IsIPv4Address(text, int(strlen(text))), 1) << text;
    for (const char* text :
         {"", "1.2.3", "1.2.3.4.5", "1234.1.1.1", "camera.lan.a.b", "1.2.3.4 ", "-1.2.3.4"})
        EXPECT_EQ(QRN_IsIPv4Address(text, int(strlen(text))), 0) << text;
    EXPECT_EQ(QRN_IsIPv4Address("1.2.3.4x", 7), 1) << "only so many characters are looked at";
    EXPECT_EQ(QRN_IsIPv4Address("1.2.3.4", -1), 0);
    EXPECT_EQ(QRN_IsIPv4Address("1.2.3.", 100), 0) << "not beyond the end of the text";
}
