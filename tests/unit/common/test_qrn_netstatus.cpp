// Tables of the network as the kernel and others may write them.
#include "common/base/fd.hpp"
#include "common/net/qrn_status_files.hpp"
#include "tests/support/temp_folder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

using std::string;

struct Tables : testing::Test {
    TempFolder folder;
    zep::Fd file;

    int holding(const string& content)
    {
        file.reset(open(folder.write("table", content).c_str(), O_RDONLY | O_CLOEXEC));
        return file.get();
    }
    string gateway(const string& content, const char* interface = nullptr)
    {
        char address[QRN_ADDRESS_SIZE];
        return zep::read_gateway(holding(content), interface, address) ? address : "";
    }
    string gateway6(const string& content)
    {
        char address[QRN_ADDRESS_SIZE];
        return zep::read_gateway6(holding(content), nullptr, address) ? address : "";
    }
};

const string kHead = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
const string kDefault = "eth0\t00000000\tFE00A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n";
const string kAny(32, '0');

} // namespace

TEST_F(Tables, AddressWordsStandInTheMachinesOrder)
{
    EXPECT_EQ(gateway(kHead + kDefault), "192.168.0.254");
    EXPECT_EQ(gateway(kHead + kDefault, "eth0"), "192.168.0.254");
    EXPECT_EQ(gateway(kHead + kDefault, "eth"), "");
    EXPECT_EQ(gateway(kHead + "ppp0\t00000000\t0100000A\t0003\t0\t0\t-1\t00000000\t0\t0\t0\n" + kDefault),
              "192.168.0.254")
        << "a metric above 2^31 comes out negative";
    EXPECT_EQ(gateway(kDefault + "eth1\t00000000\t0100000A\t0003\t0\t0\t0\t00000000\n"), "192.168.0.254")
        << "the first of equals";
    EXPECT_EQ(
        gateway6(kAny + " 00 " + kAny + " 00 fe800000000000000011223344556677 00000064 1 0 00000003 e0\n"),
        "fe80::11:2233:4455:6677%e0");
}

// The route of lowest metric is the default, whether or not it has a gateway.
TEST_F(Tables, ADefaultRouteWithoutAGatewayHidesThoseOfHigherMetric)
{
    const string slow = "eth0\t00000000\tFE00A8C0\t0003\t0\t0\t9\t00000000\t0\t0\t0\n";
    EXPECT_EQ(gateway("ppp0\t00000000\t00000000\t0001\t0\t0\t1\t00000000\t0\t0\t0\n" + slow), "");
    EXPECT_EQ(gateway("eth0\t00000000\t00000000\t0003\t0\t0\t1\t00000000\t0\t0\t0\n" + slow), "")
        << "an IPv6 next hop";
    const string ppp = kAny + " 00 " + kAny + " 00 " + kAny + " 00000001 1 0 00000001 ppp0\n";
    const string hop = " fd000000000000000000000000000001 ";
    EXPECT_EQ(gateway6(kAny + " 00 " + kAny + " 00" + hop + "00000064 1 0 00000003 e0\n"), "fd00::1");
    EXPECT_EQ(gateway6(kAny + " 00 " + kAny + " 00" + hop + "00000064 1 0 00000003 e0\n" + ppp), "");
}

TEST_F(Tables, LinesThatAreNoRouteAreNone)
{
    const string hop = " fe800000000000000011223344556677 ";
    EXPECT_EQ(gateway(""), "");
    EXPECT_EQ(gateway("eth0\t00000000\tFE00A8C0\t0001\t0\t0\t0\t00000000\n"), "") << "no gateway";
    EXPECT_EQ(gateway("eth0\t00000000\tFE00A8C0\t0002\t0\t0\t0\t00000000\n"), "") << "not up";
    EXPECT_EQ(gateway("eth0\t00000000\tFE00A8C0\t0003\t0\t0\t0\n"), "") << "no mask";
    EXPECT_EQ(gateway(string(600, ' ') + kDefault), "") << "a line too long";
    EXPECT_EQ(gateway(string("eth0\t0000\0", 10) + kDefault), "");
    EXPECT_EQ(gateway6(kAny + " 00 " + kAny + " 00 fe80 00000064 1 0 00000003 e0\n"), "");
    EXPECT_EQ(gateway6(kAny + " 00 " + kAny + " 00 " + string(40, 'f') + " 00000064 1 0 00000003 e0\n"), "");
    EXPECT_EQ(gateway6(kAny + " 40 " + kAny + " 00" + hop + "00000064 1 0 00000003 e0\n"), "");
}

TEST_F(Tables, CountersOfNamesThatTouchTheirNumbersOrEachOther)
{
    const string table = "Inter-|   Receive    |  Transmit\n face |bytes packets|bytes packets\n"
                         "eth10: 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9\n"
                         "  eth1:18446744073709551615 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
                         " eth2: 1 2 3\n";
    QRN_IF_COUNTERS_S c = {};
    ASSERT_TRUE(zep::read_counters(holding(table), "eth1", c));
    EXPECT_EQ(c.rx_bytes, UINT64_MAX);
    EXPECT_EQ(c.rx_packets + c.rx_errors + c.rx_drops, 2u + 3 + 4);
    EXPECT_EQ(c.tx_bytes, 9u);
    EXPECT_EQ(c.tx_packets + c.tx_errors + c.tx_drops, 10u + 11 + 12);
    EXPECT_FALSE(zep::read_counters(holding(table), "eth2", c));
    EXPECT_EQ(c.tx_bytes, 9u) << "untouched";
    EXPECT_EQ(QRN_CounterDifference(UINT32_MAX - 1, 3), 5u) << "wrapped once";
    EXPECT_EQ(QRN_CounterDifference(5, (uint64_t(1) << 32) + 5), uint64_t(1) << 32);
    EXPECT_EQ(QRN_CounterDifference(UINT64_MAX, 3), 4u);
}
