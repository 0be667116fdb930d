// Datagrams between processes: what is sent, received, checked and refused.
#include "common/cicomm.h"
#include "common/csysmgr.h"
#include "common/cutil_command.h"
#include "common/qrn_udp.h"
#include "tests/support/socket_helpers.hpp"

#include <cstring>
#include <fcntl.h>
#include <memory>

namespace {

using std::string;
using zep::Fd;

// The header as a peer that knows only the wire format writes it.
string header(uint32_t version, uint32_t command, uint32_t port, uint32_t length)
{
    uint32_t words[] = {version, command, port, length, 0, 0, 0};
    return "ICOM" + string(reinterpret_cast<char*>(words), sizeof words);
}

struct Cicomm : testing::Test {
    std::unique_ptr<CICOMM> server = std::make_unique<CICOMM>(), client = std::make_unique<CICOMM>();
    int port = port_of(Fd(QRN_OpenLocalUDPSSocket(0)).get());

    void SetUp() override
    {
        ASSERT_EQ(CICOMM_Init(server.get(), uint32_t(port)), 0);
        ASSERT_EQ(CICOMM_Init(client.get(), 0), 0);
    }
    ~Cicomm() override
    {
        CICOMM_Close(server.get());
        CICOMM_Close(client.get());
    }
    void raw(const string& bytes)
    {
        ASSERT_EQ(QRN_SendLocalUDPData(client->fd, port, bytes.data(), int(bytes.size())), int(bytes.size()));
    }
    // What a send to the server prints.
    string sent(const void* payload, int length, int result)
    {
        return printed([&] { EXPECT_EQ(CICOMM_Send(client.get(), 1, port, payload, length), result); });
    }
};

} // namespace

TEST_F(Cicomm, MessagesAreHeaderAndPayloadInOneDatagram)
{
    Fd peer(QRN_OpenLocalUDPSSocket(0));
    const int to = port_of(peer.get());
    char wire[64];
    memset(client->send_message, 0xEE, CICOMM_HEADER_SIZE);
    EXPECT_EQ(client->Send(client.get(), 0x01020304, to, "hello", 5), 37);
    EXPECT_EQ(QRN_RecvUDPTimeout(peer.get(), wire, sizeof wire, nullptr, 5, 0), 37);
    EXPECT_EQ(string(wire, 37), header(1, 0x01020304, 0, 5) + "hello") << "a client's own port is 0";
    EXPECT_EQ(server->Send(server.get(), 7, to, nullptr, 0), 32);
    EXPECT_EQ(QRN_RecvUDPTimeout(peer.get(), wire, sizeof wire, nullptr, 5, 0), 32);
    EXPECT_EQ(string(wire, 32), header(1, 7, uint32_t(port), 0));

    uint32_t command = 0;
    raw(header(1, 9, 0, 3) + "abc");
    EXPECT_EQ(server->Recv(server.get(), &command), 3);
    EXPECT_EQ(command, 9u);
    EXPECT_EQ(memcmp(server->GetRecvHeader(server.get()), "ICOM", 4), 0);
    EXPECT_EQ(memcmp(server->GetRecvData(server.get()), "abc", 3), 0);
    EXPECT_EQ(server->GetSocket(server.get()), server->fd);
}

TEST_F(Cicomm, RefusedLengthsSendNothing)
{
    const string large(102369, '\0'), reason = "[CICOMM_Send] error, reason(";
    EXPECT_EQ(sent(nullptr, 5, -1), reason + "size[5], buff[0])\n");
    EXPECT_EQ(sent(nullptr, -5, -1), reason + "size[-5], buff[0])\n");
    EXPECT_EQ(sent(large.data(), -1, -2), reason + "size over -1 vs 102368)\n");
    EXPECT_EQ(sent(large.data(), 102369, -2), reason + "size over 102369 vs 102368)\n");
    char byte;
    EXPECT_EQ(QRN_RecvLocalUDPData(server->fd, port, &byte, 1), 0);
    EXPECT_EQ(sent(large.data(), 65475, 65507), "") << "the largest datagram";
    EXPECT_EQ(CICOMM_RecvChecked(server.get(), nullptr), 65475);
    const string limit = reason + "SendTo -1 vs 65508)\n";
    EXPECT_EQ(sent(large.data(), 65476, -4),
              "[SendTo] Error Number : 90, Error String Message too long\n" + limit);
    EXPECT_EQ(CICOMM_Close(client.get()), 0);
    EXPECT_EQ(sent(large.data(), 65476, -4), limit);
}

TEST_F(Cicomm, ReceiveReturnsTheClaimedLengthTheCheckedOneOnlyWhatArrived)
{
    const struct {
        string bytes;
        int claimed, checked;
    } cases[] = {
        {header(1, 5, 0, 2) + "ab", 2, 2},
        {header(1, 5, 0, 1) + "ab", 1, 1},
        {header(1, 5, 0, 0), 0, 0},
        {header(1, 5, 0, 3) + "ab", 3, -1},
        {header(1, 5, 0, 0x7FFFFFFF), 0x7FFFFFFF, -1},
        {header(1, 5, 0, 0xFFFFFFFE) + "ab", -2, -1},
        {header(2, 5, 0, 2) + "ab", 2, -1},
        {"ICON" + header(1, 5, 0, 2).substr(4) + "ab", 2, -1},
        {"short", 2, -1}, // the length is that of the message before
        {"", -1, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CICOMM_CheckMessage(c.bytes.data(), int32_t(c.bytes.size())), c.checked) << c.bytes;
        uint32_t command = 77;
        raw(c.bytes);
        raw(c.bytes);
        const string said = printed([&] {
            EXPECT_EQ(CICOMM_Recv(server.get(), nullptr), c.claimed) << c.bytes;
            EXPECT_EQ(CICOMM_RecvChecked(server.get(), &command), c.checked) << c.bytes;
        });
        EXPECT_EQ(command, c.checked < 0 ? 77u : 5u);
        EXPECT_EQ(said.find("[CICOMM_Recv] error, reason(recvfrom)\n"), c.bytes.empty() ? 0 : string::npos);
    }
    EXPECT_EQ(server->Close(server.get()), 0);
    EXPECT_EQ(server->Close(server.get()), -1);
    EXPECT_EQ(server->GetSocket(server.get()), -1);
    Fd taken(openUDPSSocket(0));
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(CICOMM_Recv(server.get(), nullptr), -1);
                  EXPECT_EQ(CICOMM_Init(server.get(), uint32_t(port_of(taken.get()))), -1);
              }),
              "[QRN_OpenLocalUDPSSocket] local bind error. exit\n"
              "[CICOMM_Init] error, reason(QRN_OpenLocalUDPSSocket)\n");
    EXPECT_EQ(server->fd, -1);
}

TEST(Sysmgr, BadArgumentsAndDescriptorZeroAreRefused)
{
    char data[257] = {};
    EXPECT_EQ(CSYSMGR_SendPacket(1, data, 257), -1);
    EXPECT_EQ(CSYSMGR_SendPacket(1, data, -12), -1);
    EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 1), -1);
    EXPECT_EQ(in_child([] {
                  close(0);
                  return CSYSMGR_SendPacket(1, nullptr, 0) == -1 && fcntl(0, F_GETFD) >= 0 ? 0 : 1;
              }),
              0);
}

TEST(SendCommand, WritesHeaderAndDataAndCallsAShortWriteAFailure)
{
    SocketPair pair(SOCK_DGRAM); // keeps the writes apart
    const int fd = pair.near.get();
    EXPECT_EQ(CUTIL_SendCommand(fd, 0x64636261, 3, "xyz"), 0);
    EXPECT_EQ(CUTIL_SendCommand(fd, 0x64636261, 0, nullptr), 0);
    for (const string& wanted : {string("abcd\3\0\0\0", 8), string("xyz"), string("abcd\0\0\0\0", 8)}) {
        char wire[16];
        EXPECT_EQ(string(wire, size_t(read(pair.far.get(), wire, sizeof wire))), wanted);
    }
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    Fd out(ends[0]), in(ends[1]);
    const string data(1000000, 'x');
    const string lines = printed([&] {
        EXPECT_EQ(CUTIL_SendCommand(-1, 1, 1, "x"), -1);
        EXPECT_EQ(CUTIL_SendCommand(-2, 1, 1, "x"), -1);
        EXPECT_EQ(CUTIL_SendCommand(fd, 1, -7, "x"), -1);
        EXPECT_EQ(CUTIL_SendCommand(in.get(), 1, 1000000, data.data()), -1);
    });
    EXPECT_THAT(lines, testing::MatchesRegex(
                           "ERROR ! CUTIL_SendCommand.. invalid param => fd is .-1.\n"
                           "ERROR ! CUTIL_SendCommand.. => header write return is .-1 != 8.\n"
                           "ERROR ! CUTIL_SendCommand.. => data write return is .-1 != -7.\n"
                           "ERROR ! CUTIL_SendCommand.. => data write return is .[0-9]+ != 1000000.\n"));
}
