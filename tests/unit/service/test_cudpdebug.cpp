// Debug lines as datagrams.
#include "common/qrn_udp.h"
#include "service/cudpdebug.h"
#include "tests/support/socket_helpers.hpp"

#include <cstring>
#include <memory>

namespace {

using std::string;

struct UdpDebug : testing::Test {
    std::unique_ptr<CUDPDEBUG> log = std::make_unique<CUDPDEBUG>();
    zep::Fd console{QRN_OpenLocalUDPSSocket(0)};

    void open(const char* tag)
    {
        ASSERT_EQ(CUDPDEBUG_Init(log.get(), 1, "127.0.0.1", uint16_t(port_of(console.get())), tag), 0);
    }
    void TearDown() override { log->Close(log.get()); }

    string received() const
    {
        string text(70000, '\0');
        int got = QRN_RecvLocalUDPData(console.get(), 0, text.data(), int(text.size()));
        text.resize(size_t(got));
        return text;
    }
};

} // namespace

TEST_F(UdpDebug, AMessageIsOneDatagramWithTheTagInFront)
{
    open("cam");
    EXPECT_EQ(log->Printf(log.get(), "x=%d", 5), 9);
    EXPECT_EQ(received(), "[cam] x=5");
    EXPECT_EQ(log->Printf(log.get(), "%s", ""), 6) << "the tag alone";
    EXPECT_EQ(received(), "[cam] ");
    EXPECT_EQ(log->Close(log.get()), 0);
    open("100%s %n");
    EXPECT_EQ(log->Printf(log.get(), "%d%%\n", 7), 14);
    EXPECT_EQ(received(), "[100%s %n] 7%\n") << "a tag holds no conversions";
    log->Close(log.get());
    open(nullptr);
    EXPECT_EQ(log->Printf(log.get(), "%s", ""), 0);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(log->Printf(log.get(), "bare"), 4);
    EXPECT_EQ(received(), "bare");
}

TEST_F(UdpDebug, LongMessagesAndTagsAreBounded)
{
    open(string(500, 't').c_str());
    EXPECT_EQ(string(log->tag), string(255, 't'));
    string text(60000, 'x');
    EXPECT_EQ(log->Printf(log.get(), "%s", text.c_str()), 60258);
    EXPECT_EQ(received().size(), 60258u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(log->Printf(log.get(), "%s", string(200000, 'x').c_str()), -1)
        << "the kernel refuses the datagram";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[CUDPDEBUG_Printf]: Message too long\n");
    EXPECT_EQ(strlen(log->message), size_t(CUDPDEBUG_MESSAGE_SIZE) - 1);
}

TEST_F(UdpDebug, ADisabledOneOpensAndSendsNothing)
{
    EXPECT_EQ(CUDPDEBUG_Init(log.get(), 0, "127.0.0.1", uint16_t(port_of(console.get())), nullptr), 0);
    EXPECT_EQ(log->Printf(log.get(), "x"), 0);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(log->Close(log.get()), -1);
}
