// Network status, beside what ip(8) says of the same links.
#include "common/net/inet_address.hpp"
#include "common/base/fd.hpp"
#include "common/qrn_netstatus.h"
#include "tests/camera/libs/inside.hpp"

#include <arpa/inet.h>
#include <sys/socket.h>

namespace {

const string kIp = "/usr/bin/ip "; // the camera's own speaks no JSON

string output_of(const string& command)
{
    const Said said = say(command);
    EXPECT_EQ(said.status, 0) << command;
    return said.text;
}

void ip(const string& words) { output_of(kIp + words); }

// The string or number behind a key of ip's JSON, from a place on.
string json_value(const string& json, const string& key, size_t from = 0)
{
    size_t at = json.find("\"" + key + "\":", from);
    if (at == string::npos) return "";
    at += key.size() + 3;
    if (json[at] == '"') return json.substr(at + 1, json.find('"', at + 1) - at - 1);
    return json.substr(at, json.find_first_of(",}", at) - at);
}

// The address that a function gives for an interface; none when it fails, and then the room is untouched.
string gateway(const char* interface = nullptr, int32_t (*get)(const char*, char*) = QRN_GetDefaultGateway)
{
    char address[QRN_ADDRESS_SIZE] = "untouched";
    int32_t result = get(interface, address);
    EXPECT_EQ(result, string(address) == "untouched" ? -1 : 0);
    return result == 0 ? address : "";
}

string gateway6(const char* interface = nullptr) { return gateway(interface, QRN_GetDefaultGateway6); }

string resolvers(const string& content, int32_t max = 8)
{
    write_file("/etc/resolv.conf", content);
    char list[8][QRN_ADDRESS_SIZE] = {};
    string text;
    for (int32_t i = 0, count = QRN_GetResolvers(list, max); i < count; ++i) text += string(list[i]) + " ";
    return text;
}

// Waits for what the kernel does a moment later.
bool soon(auto&& condition)
{
    for (int i = 0; i < 10000; ++i, usleep(10000))
        if (condition()) return true;
    return false;
}

// Two links, wired to each other, in a network of their own.
void with_links(auto&& part)
{
    isolated(CLONE_NEWNET, [&] {
        write_file("/proc/sys/net/ipv6/conf/default/accept_dad", "0");
        ip("link add eth7 type veth peer name eth77");
        part();
    });
}

// As ip(8) shows them: what was received, then what was sent.
string text_of(const QRN_IF_COUNTERS_S& c)
{
    string text;
    for (uint64_t number : {c.rx_bytes, c.rx_packets, c.rx_errors, c.rx_drops, c.tx_bytes, c.tx_packets,
                            c.tx_errors, c.tx_drops})
        text += std::to_string(number) + " ";
    return text;
}

} // namespace

TEST(NetStatus, CarrierFollowsBothEnds)
{
    with_links([] {
        EXPECT_EQ(QRN_GetLinkCarrier("eth7"), 0) << "down";
        ip("link set eth7 up");
        EXPECT_EQ(QRN_GetLinkCarrier("eth7"), 0) << "the other end is down";
        ip("link set eth77 up");
        EXPECT_TRUE(soon([] { return QRN_GetLinkCarrier("eth7") == 1; }));
        ip("link set eth77 down");
        EXPECT_TRUE(soon([] { return QRN_GetLinkCarrier("eth7") == 0; }));
        ip("link set lo up");
        EXPECT_EQ(QRN_GetLinkCarrier("lo"), 1);
        for (const char* name : {"", "eth", "eth777", "../eth7", "an-interface-name-that-is-too-long",
                                 static_cast<const char*>(nullptr)}) {
            EXPECT_EQ(QRN_GetLinkCarrier(name), -1) << name;
            QRN_IF_COUNTERS_S counters;
            EXPECT_EQ(QRN_GetIfCounters(name, &counters), -1) << name;
        }
    });
}

TEST(NetStatus, CountersAndHardwareAddressAreThoseThatIpShows)
{
    with_links([] {
        ip("addr add 10.7.0.1/24 dev eth7");
        ip("link set eth7 up");
        ip("link set eth77 up");
        ip("neigh replace 10.7.0.9 lladdr 02:00:00:00:00:09 dev eth7");
        zep::Fd fd(socket(AF_INET, SOCK_DGRAM, 0));
        const sockaddr_in to = zep::inet_address(inet_addr("10.7.0.9"), 9);
        const char data[1000] = {};
        ASSERT_TRUE(soon([&] { return QRN_GetLinkCarrier("eth7") == 1; }));
        for (int i = 0; i < 50; ++i)
            ASSERT_EQ(sendto(fd.get(), data, sizeof data, 0, zep::as_sockaddr(to), sizeof to), 1000);
        for (const char* name : {"eth7", "eth77"}) {
            QRN_IF_COUNTERS_S before, after;
            string json, shown;
            // Once more when the kernel's own packets of a fresh link came between.
            EXPECT_TRUE(soon([&] {
                EXPECT_EQ(QRN_GetIfCounters(name, &before), 0);
                json = output_of(kIp + "-j -s link show dev " + name);
                EXPECT_EQ(QRN_GetIfCounters(name, &after), 0);
                return text_of(before) == text_of(after);
            }));
            EXPECT_GE(before.tx_bytes + before.rx_bytes, 50u * 1042);
            for (const char* way : {"\"rx\":", "\"tx\":"})
                for (const char* key : {"bytes", "packets", "errors", "dropped"})
                    shown += json_value(json, key, json.find(way)) + " ";
            EXPECT_EQ(text_of(before), shown);
        }
        EXPECT_EQ(gateway("eth7", QRN_GetHardwareAddress),
                  json_value(output_of(kIp + "-j link show dev eth7"), "address"));
        EXPECT_EQ(gateway("lo", QRN_GetHardwareAddress) + gateway("eth0none", QRN_GetHardwareAddress), "");
    });
}

TEST(NetStatus, TheGatewayIsThatOfTheLowestMetric)
{
    with_links([] {
        for (const char* name : {"eth7", "eth77"}) {
            const string digit = name[4] ? "8" : "7";
            ip(string("link set ") + name + " up");
            ip("addr add 10." + digit + ".0.1/24 dev " + name);
            ip("addr add fd0" + digit + "::1/64 dev " + name + " nodad");
        }
        EXPECT_EQ(gateway() + gateway6(), "");
        ip("route add 192.168.0.0/16 via 10.7.0.77");
        ip("route add 0.0.0.0/1 via 10.7.0.78");
        EXPECT_EQ(gateway(), "") << "neither is a way to everywhere";
        ip("route add default via 10.7.0.254 dev eth7 metric 3000000000");
        EXPECT_EQ(gateway(), "10.7.0.254");
        ip("route add default via 10.8.0.200 dev eth77 metric 50");
        EXPECT_EQ(gateway(), "10.8.0.200");
        EXPECT_EQ(gateway("eth7"), "10.7.0.254");
        EXPECT_EQ(gateway("eth"), "");
        EXPECT_EQ(QRN_GetDefaultGateway(nullptr, nullptr), -1);
        ip("-6 route add unreachable default metric 1");
        ip("-6 route add default via fd07::fe dev eth7 metric 300");
        ip("-6 route add default via fe80::1:2 dev eth77 metric 200");
        ip("-6 route add 2000::/3 via fd07::7 dev eth7 metric 5");
        EXPECT_EQ(gateway6(), "fe80::1:2%eth77");
        EXPECT_EQ(gateway6("eth7"), "fd07::fe");
        EXPECT_EQ(gateway6("lo"), "");
    });
}

TEST(NetStatus, ResolversAreThoseTheResolverWouldUse)
{
    const string widest = "fe81:1111:2222:3333:4444:5555:6666:7777%" + string(15, 'i');
    const string four = "nameserver 1.0.0.1\nnameserver 1.0.0.2\nnameserver 1.0.0.3\nnameserver 1.0.0.4\n";
    const struct {
        string content;
        int32_t max;
        string addresses;
    } cases[] = {
        {"# nameserver 9.9.9.9\n;nameserver 9.9.9.9\nsearch example\nnameserver\t10.0.0.1 # x\n"
         "nameserver  FE80:0::0:1%eth0\r\nnameserver10.0.0.2\nnameservers 10.0.0.3\n"
         " nameserver 10.0.0.4\nnameserver\nnameserver 1.2.3\nnameserver 10.0.0.300\nnameserver 10.0.0.5",
         8, "10.0.0.1 fe80::1%eth0 10.0.0.5 "},
        // A zone where an address needs one and an interface can have the name.
        {"nameserver fd00::1%eth0\nnameserver fe80::2\nnameserver fe80::1%" + string(16, 'i') + "\n", 8,
         "fd00::1 fe80::2 fe80::1 "},
        {"nameserver " + widest + "\n", 8, widest + " "},
        {four, 8, "1.0.0.1 1.0.0.2 1.0.0.3 "}, // the resolver uses three
        {four, 1, "1.0.0.1 "},
        {four, 0, ""},
        {"#" + string(510, 'x') + "nameserver 6.6.6.6\n" + four, 1, "1.0.0.1 "}, // the end of a long comment
        {string("nameserver \0 1.1.1.1\n\0\0\n", 24) + four, 1, "1.0.0.1 "},
    };
    const string before = read_file("/etc/resolv.conf");
    for (const auto& c : cases) EXPECT_EQ(resolvers(c.content, c.max), c.addresses) << c.content;
    char list[1][QRN_ADDRESS_SIZE];
    unlink("/etc/resolv.conf");
    EXPECT_EQ(QRN_GetResolvers(list, 1), -1);
    EXPECT_EQ(QRN_GetResolvers(nullptr, 1), -1);
    if (!before.empty()) write_file("/etc/resolv.conf", before);
}
