// Debug lines as datagrams.
#include "common/qrn_udp.h"
#include "service/cudpdebug.h"
#include "tests/support/socket_helpers.hpp"

#include <cstring>
#include <memory>

using std::string;

TEST(UdpDebug, AMessageIsOneDatagramWithTheTagInFront)
{
    zep::Fd console(QRN_OpenLocalUDPSSocket(0));
    auto log = std::make_unique<CUDPDEBUG>();
    const string tag(500, 't'), text(60000, 'x');
    const struct {
        int enable;
        const char* tag;
        string text;
        int sent;
        string received;
    } cases[] = {
        {1, "cam", "x=5", 9, "[cam] x=5"},
        {1, "cam", "", 6, "[cam] "},                    // the tag alone
        {1, "100%s %n", "7%\n", 14, "[100%s %n] 7%\n"}, // a tag holds no conversions
        {1, nullptr, "", 0, ""},
        {1, nullptr, "bare", 4, "bare"},
        {1, tag.c_str(), text, 60258, "[" + tag.substr(0, 255) + "] " + text},
        {0, "cam", "x", 0, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CUDPDEBUG_Init(log.get(), c.enable, "127.0.0.1", uint16_t(port_of(console.get())), c.tag),
                  0);
        EXPECT_EQ(log->Printf(log.get(), "%s", c.text.c_str()), c.sent);
        string got(70000, '\0');
        got.resize(size_t(QRN_RecvLocalUDPData(console.get(), 0, got.data(), int(got.size()))));
        EXPECT_EQ(got, c.received);
        EXPECT_EQ(log->Close(log.get()), c.enable ? 0 : -1);
    }
    CUDPDEBUG_Init(log.get(), 1, "127.0.0.1", uint16_t(port_of(console.get())), nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(log->Printf(log.get(), "%s", string(200000, 'x').c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[CUDPDEBUG_Printf]: Message too long\n");
    EXPECT_EQ(strlen(log->message), size_t(CUDPDEBUG_MESSAGE_SIZE) - 1);
    log->Close(log.get());
}
