// Unix-domain stream sockets.
#include "common/qrn_socket.h"
#include "common/qrn_uds.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <cstring>

namespace {

using std::string;
using zep::Fd;

} // namespace

TEST(Uds, ServerReplacesWhatStandsAtItsPathAndClientsConnect)
{
    TempFolder folder;
    string path = folder / "sock";
    Fd stale(QRN_BindUDSSocket(path.c_str()));
    stale.reset();
    Fd server(QRN_BindUDSSocket(path.c_str()));
    ASSERT_TRUE(bool(server));
    Fd client(QRN_ConnectUDSSocket(path.c_str()));
    ASSERT_TRUE(bool(client));
    Fd peer(accept(server.get(), nullptr, nullptr));
    ASSERT_EQ(write(client.get(), "hi", 2), 2);
    char text[2];
    EXPECT_EQ(read(peer.get(), text, 2), 2);
}

TEST(Uds, FailuresPrintTheirLineAndAnOverlongPathTouchesNothing)
{
    TempFolder folder;
    string none = folder / "none";
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_ConnectUDSSocket(none.c_str()), -1); }),
              "[QRN_ConnectUDSSocket] Error Number : 2, Error String : No such file or directory\n");
    string name((folder / "").size() < 108 ? 108 - (folder / "").size() : 1, 'n');
    string path = folder.write(name, "not ours");
    ASSERT_GE(path.size(), 108u);
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_BindUDSSocket(path.c_str()), -1); }),
              "[QRN_BindUDSSocket] while bind tcp socket : File name too long\n");
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(folder.read(name), "not ours");
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_ConnectUDSSocket(path.c_str()), -1); }),
              "[QRN_ConnectUDSSocket] Error Number : 36, Error String : File name too long\n");
    path.pop_back();
    Fd longest(QRN_BindUDSSocket(path.c_str()));
    EXPECT_TRUE(bool(longest)) << "107 characters fit";
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_BindUDSSocket((folder / "no/sock").c_str()), -1); }),
              "[QRN_BindUDSSocket] while bind tcp socket : No such file or directory\n");
}

TEST(SocketBuffer, IsRaisedOnlyAndTheSizeBeforeIsReturned)
{
    SocketPair pair(SOCK_DGRAM);
    int fd = pair.near.get();
    int size = QRN_GetSocketBufferSize(fd, SO_SNDBUF);
    ASSERT_GT(size, 8192);
    EXPECT_EQ(QRN_SetSocketBufferSize(fd, size / 2, SO_SNDBUF), size);
    EXPECT_EQ(QRN_SetSocketBufferSize(fd, size, SO_SNDBUF), size);
    EXPECT_EQ(QRN_GetSocketBufferSize(fd, SO_SNDBUF), size) << "nothing was set";
    int small = 4096;
    ASSERT_EQ(setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    small = QRN_GetSocketBufferSize(fd, SO_SNDBUF);
    EXPECT_EQ(QRN_SetSocketBufferSize(fd, small + 8192, SO_SNDBUF), small);
    EXPECT_GT(QRN_GetSocketBufferSize(fd, SO_SNDBUF), small);
    string line = "QRN_GetSocketBufferSize error : 9, Bad file descriptor\n";
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
