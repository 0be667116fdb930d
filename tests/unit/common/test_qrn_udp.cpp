// Datagram sockets: local, open to all, with a time limit.
#include "common/qrn_udp.h"
#include "tests/support/socket_helpers.hpp"

#include <fcntl.h>
#include <sys/resource.h>

namespace {

using zep::Fd;

} // namespace

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

TEST(Udp, TheLoopbackServerSharesItsPortTheOtherDoesNot)
{
    Fd first(QRN_OpenLocalUDPSSocket(0));
    Fd second(QRN_OpenLocalUDPSSocket(port_of(first.get())));
    EXPECT_TRUE(bool(second));
    Fd open(openUDPSSocket(0));
    ASSERT_TRUE(bool(open));
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(open.get(), reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    int port = port_of(open.get());
    EXPECT_EQ(printed([&] { EXPECT_EQ(openUDPSSocket(port), -1); }),
              "[openUDPSSocket] local bind error. exit\n");
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_OpenLocalUDPSSocket(port), -1); }),
              "[QRN_OpenLocalUDPSSocket] local bind error. exit\n");
}

TEST(Udp, FailuresPrintTheirLine)
{
    char byte = 0;
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_SendLocalUDPData(-1, 9, &byte, 1), -1); }),
              "[QRN_SendLocalUDPData] : error while send message : Bad file descriptor\n");
    EXPECT_EQ(QRN_RecvLocalUDPData(-1, 9, &byte, 1), 0) << "not readable";
    // A connected datagram socket learns that nobody listens: readable, and the receive fails.
    Fd closed(QRN_OpenLocalUDPSSocket(0)), client(QRN_OpenLocalUDPCSocket());
    sockaddr_in nobody = zep::loopback_address(port_of(closed.get()));
    closed.reset();
    ASSERT_EQ(connect(client.get(), zep::as_sockaddr(nobody), sizeof nobody), 0);
    ASSERT_EQ(send(client.get(), &byte, 1, 0), 1);
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_RecvLocalUDPData(client.get(), 9, &byte, 1), -1); }),
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
