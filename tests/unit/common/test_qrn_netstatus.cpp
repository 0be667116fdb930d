// Tables of the network as the kernel and others may write them.
#include "common/net/qrn_status_files.hpp"
#include "tests/support/memory_file.hpp"

#include <gtest/gtest.h>

namespace {

using std::string;

const string kHead = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
const string kAny(32, '0');
const string kHop = "fd000000000000000000000000000001", kLocalHop = "fe800000000000000011223344556677";

// A default route of the table.
string route(const string& interface, const string& gateway, const string& flags, const string& metric)
{
    return interface + "\t00000000\t" + gateway + "\t000" + flags + "\t0\t0\t" + metric +
           "\t00000000\t0\t0\t0\n";
}

string route6(const string& hop, const string& tail, const string& length = "00")
{
    return kAny + " " + length + " " + kAny + " 00 " + hop + " 000000" + tail + "\n";
}

const string kDefault = route("eth0", "FE00A8C0", "3", "0"), kSlow = route("eth0", "FE00A8C0", "3", "9");

} // namespace

// Address words stand in the machine's order. The route of lowest metric is the default, whether or not it has a
// gateway; the first of equals.
TEST(Tables, TheGatewayIsThatOfTheDefaultRoute)
{
    const struct {
        string table;
        const char* interface;
        string gateway;
    } cases[] = {
        {kHead + kDefault, nullptr, "192.168.0.254"},
        {kHead + kDefault, "eth0", "192.168.0.254"},
        {kHead + kDefault, "eth", ""},
        {kHead + route("ppp0", "0100000A", "3", "-1") + kDefault, nullptr, "192.168.0.254"}, // above 2^31
        {kDefault + route("eth1", "0100000A", "3", "0"), nullptr, "192.168.0.254"},
        {route("ppp0", "00000000", "1", "1") + kSlow, nullptr, ""},
        {route("eth0", "00000000", "3", "1") + kSlow, nullptr, ""}, // an IPv6 next hop
        {route("*", "00000000", "201", "2") + kSlow, nullptr, ""},  // unreachable
        {route("ppp0", "00000000", "1", "1") + kSlow, "eth0", "192.168.0.254"},
        {"", nullptr, ""},
        {route("eth0", "FE00A8C0", "1", "0"), nullptr, ""},         // no gateway
        {route("eth0", "FE00A8C0", "2", "0"), nullptr, ""},         // not up
        {"eth0\t00000000\tFE00A8C0\t0003\t0\t0\t0\n", nullptr, ""}, // no mask
        {string(600, ' ') + kDefault, nullptr, ""},                 // a line too long
        {string("eth0\t0000\0", 10) + kDefault, nullptr, ""},
    };
    char address[QRN_ADDRESS_SIZE];
    for (const auto& c : cases) {
        const bool found = zep::read_gateway(MemoryFile(c.table).fd(), c.interface, address);
        EXPECT_EQ(found ? address : "", c.gateway) << c.table;
    }
    const string direct = route6(kAny, "01 1 0 00000001 ppp0");
    const std::pair<string, string> cases6[] = {
        {route6(kLocalHop, "64 1 0 00000003 e0"), "fe80::11:2233:4455:6677%e0"},
        {route6(kHop, "64 1 0 00000003 e0"), "fd00::1"},
        {route6(kHop, "64 1 0 00000003 e0") + direct, ""},
        {route6("fe80", "64 1 0 00000003 e0"), ""},
        {route6(string(40, 'f'), "64 1 0 00000003 e0"), ""},
        {route6(kLocalHop, "64 1 0 00000003 e0", "40"), ""},
    };
    for (const auto& [table, gateway] : cases6) {
        const bool found = zep::read_gateway6(MemoryFile(table).fd(), nullptr, address);
        EXPECT_EQ(found ? address : "", gateway) << table;
    }
}

TEST(Tables, CountersOfNamesThatTouchTheirNumbersOrEachOther)
{
    const MemoryFile table("Inter-|   Receive    |  Transmit\n face |bytes packets|bytes packets\n"
                           "eth10: 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9\n"
                           "  eth1:18446744073709551615 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
                           " eth2: 1 2 3\n");
    QRN_IF_COUNTERS_S c = {};
    ASSERT_TRUE(zep::read_counters(table.fd(), "eth1", c));
    EXPECT_EQ(c.rx_bytes, UINT64_MAX);
    EXPECT_EQ(c.rx_packets + c.rx_errors + c.rx_drops, 2u + 3 + 4);
    EXPECT_EQ(c.tx_bytes, 9u);
    EXPECT_EQ(c.tx_packets + c.tx_errors + c.tx_drops, 10u + 11 + 12);
    lseek(table.fd(), 0, SEEK_SET);
    EXPECT_FALSE(zep::read_counters(table.fd(), "eth2", c));
    EXPECT_EQ(c.tx_bytes, 9u) << "untouched";
    EXPECT_EQ(QRN_CounterDifference(UINT32_MAX - 1, 3), 5u) << "wrapped once";
    EXPECT_EQ(QRN_CounterDifference(5, (uint64_t(1) << 32) + 5), uint64_t(1) << 32);
    EXPECT_EQ(QRN_CounterDifference(UINT64_MAX, 3), 4u);
}
