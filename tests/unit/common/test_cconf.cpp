// The typed readers, each on its own: samples, defaults, pages, files that cannot be read.
#include "common/conf/conf_table.hpp"
#include "tests/unit/common/reader_list.hpp"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <syslog.h>

namespace {

using namespace zep;
using std::string;

constexpr ConfKey text_key(const char* name, const char* section = nullptr)
{
    return {.name = name, .store = conf_store_text, .offset = 0, .size = 8, .section = section};
}

// The first key that a name begins with counts.
constexpr ConfKey kLongerFirst[] = {text_key("cam_alias_2"), text_key("cam_alias")};
constexpr ConfKey kShorterFirst[] = {text_key("cam_alias"), text_key("cam_alias_2")};
constexpr ConfKey kSections[] = {text_key("mode", "INPUT"), text_key("mode", "FTP"), text_key("mode")};
static_assert(conf_keys_reachable(kLongerFirst) && !conf_keys_reachable(kShorterFirst));
static_assert(conf_keys_reachable(kSections));

string section_of(const ConfKey& key) { return key.section ? key.section : ""; }

struct Setting {
    string section, key, value;
    bool operator==(const Setting&) const = default;
};

void PrintTo(const Setting& s, std::ostream* out) { *out << s.section << ' ' << s.key << '=' << s.value; }

// A well-kept file: comments, sections, key=value, the value quoted or not.
std::vector<Setting> settings_in(const string& path)
{
    std::vector<Setting> list;
    std::istringstream file(read_file(path));
    string section;
    for (string line; getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            section = line.substr(1, line.find(']') - 1);
            continue;
        }
        size_t sign = line.find('=');
        string value = line.substr(sign + 1);
        if (value[0] == '"') value = value.substr(1, value.size() - 2);
        list.push_back({section, line.substr(0, sign), value});
    }
    return list;
}

// What a value may be, as the pages and headers say it.
string range_of(const ConfKey& key, bool with_length)
{
    if (key.store == conf_store_int32) return std::to_string(key.min) + ".." + std::to_string(key.max);
    if (key.store == conf_store_text)
        return with_length ? "text, " + std::to_string(key.size - 1) : string("text");
    if (key.words) return std::regex_replace(key.words, std::regex(" "), "|");
    return key.store == conf_store_mac ? "MAC" : key.store == conf_store_ipv4 ? "IPv4" : "IPv6";
}

// The rows of the manual pages: file and section, key, what it may be, default.
std::vector<string> rows_of_pages()
{
    std::vector<string> rows;
    string file, section;
    for (const char* page : {"network", "device", "video", "event", "server"}) {
        std::istringstream text(read_file(string(ZEP_SOURCE "/docs/man/zep-conf-") + page + ".5"));
        std::smatch found;
        for (string line; getline(text, line);) {
            if (std::regex_match(line, found, std::regex(R"(\.Ss (/etc/\S+))")))
                file = found[1], section = "";
            if (std::regex_match(line, found, std::regex(R"(\.Ql \[(\w+)\] :)"))) section = found[1];
            if (std::regex_match(line, found, std::regex(R"(\.It Cm (\w+) Ta (.*) Ta (.*) Ta \S.*)")))
                rows.push_back(file + ' ' + section + ' ' + string(found[1]) + ' ' + string(found[2]) + ' ' +
                               (found[3] == "\"\"" ? "" : string(found[3])));
        }
    }
    return rows;
}

} // namespace

TEST(Cconf, TheSampleNamesEveryKeyOnceAndFillsItsField)
{
    for (const TypedReader& reader : kReaders) {
        SCOPED_TRACE(reader.path);
        string path = ZEP_SOURCE "/docs/examples" + reader.path;
        AnyRecord before(reader), record(reader);
        ASSERT_EQ(record.read(path), 1);
        std::vector<Setting> read;
        for (const ConfKey& key : reader.table.keys) {
            EXPECT_NE(record.text(key), before.text(key))
                << key.name << ": a sample differs from the default";
            read.push_back({section_of(key), key.name, record.text(key)});
        }
        EXPECT_EQ(read, settings_in(path));
    }
}

TEST(Cconf, EveryFieldBeginsWithItsDefault)
{
    for (const TypedReader& reader : kReaders) {
        AnyRecord record(reader);
        for (const ConfKey& key : reader.table.keys) EXPECT_EQ(record.text(key), key.fallback) << key.name;
        EXPECT_TRUE(record.sound());
        reader.fallback(nullptr);
    }
    CCONF_STREAM_S stream;
    CCONF_DefaultStream(&stream);
    EXPECT_EQ(stream.stream[0].port, 1852);
    EXPECT_EQ(stream.stream[2].port, 1854);
    CCONF_TIME_ZONE_S zone;
    CCONF_DefaultTimeZone(&zone);
    EXPECT_EQ(zone.timezone, 18) << "UTC";
}

TEST(Cconf, AFileThatCannotBeOpenedIsLoggedAndLeavesTheRecord)
{
    openlog("test", LOG_PERROR, LOG_USER);
    for (const TypedReader& reader : kReaders) {
        AnyRecord before(reader), record(reader);
        testing::internal::CaptureStderr();
        EXPECT_EQ(record.read("/none/such.conf"), 0);
        // A C library adds a newline of its own, or only where the message has none.
        EXPECT_THAT(
            testing::internal::GetCapturedStderr(),
            testing::MatchesRegex(string("test: ") + reader.table.name +
                                  " : /none/such.conf can't open file : No such file or directory\n+"));
        EXPECT_EQ(reader.read(nullptr, &record), 0);
        EXPECT_EQ(reader.read("/dev/null", nullptr), 0);
        EXPECT_EQ(record.read("/dev/null"), 1);
        EXPECT_EQ(record.read("/"), 1) << "a folder opens, and holds no lines";
        EXPECT_TRUE(record == before);
    }
    closelog();
}

TEST(Cconf, LongerNamesComeBeforeTheNamesThatBeginThem)
{
    TempFolder folder;
    CCONF_GENERAL_S general;
    CCONF_DefaultGeneral(&general);
    string path = folder.write("general.conf", "cam_alias_2=hall\ncam_alias=gate\ncam_alias_3x=stairs\n");
    ASSERT_EQ(CCONF_ReadGeneral(path.c_str(), &general), 1);
    EXPECT_STREQ(general.cam_alias, "gate");
    EXPECT_STREQ(general.cam_alias_2, "hall");
    EXPECT_STREQ(general.cam_alias_3, "stairs");
    CCONF_WEB_S web;
    CCONF_DefaultWeb(&web);
    ASSERT_EQ(CCONF_ReadWeb(folder.write("web.conf", "port_2=81\nhttps_port=444\n").c_str(), &web), 1);
    EXPECT_EQ(web.port, 81) << "a key counts as the known one that it begins with";
    EXPECT_EQ(web.https_port, 444);
}

TEST(Cconf, OneKeyOfTwoSectionsGoesToTheFieldOfEach)
{
    TempFolder folder;
    CCONF_EVENT_CONTROL_S control;
    CCONF_DefaultEventControl(&control);
    string path =
        folder.write("e.conf", "port=1\nenable=1\n[FTP]\nport=2\n [EMAIL] \nport=3\n[OTHER]\nport=4\n");
    ASSERT_EQ(CCONF_ReadEventControl(path.c_str(), &control), 1);
    EXPECT_EQ(control.ftp.port, 2);
    EXPECT_EQ(control.email.port, 3);
    EXPECT_EQ(control.input.enable + control.ftp.enable + control.email.enable, 0);
}

TEST(Cconf, AddressesAndWordsMustBeWhole)
{
    TempFolder folder;
    auto network = [&](const string& line) {
        CCONF_NETWORK_S record;
        CCONF_DefaultNetwork(&record);
        EXPECT_EQ(CCONF_ReadNetwork(folder.write("n.conf", line).c_str(), &record), 1);
        return record;
    };
    for (const char* bad : {"1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4/24", "1..2.3", "fe80::1", "x"})
        EXPECT_STREQ(network(string("ip_address=") + bad).ip_address, "192.168.0.100") << bad;
    for (const char* bad : {"ful", "full", "auto 10half", "100fullx", "1", "AUTO"})
        EXPECT_EQ(network(string("link=100half\nlink=") + bad).link, CCONF_NETWORK_LINK_100HALF) << bad;
    EXPECT_EQ(network("mtu=0577").mtu, 577);
    for (const char* bad : {"575", "1501", "0x400", "1e3", "999999999999999999999", "-1000", "1 000", "--1"})
        EXPECT_EQ(network(string("mtu=") + bad).mtu, 1500) << bad;
    CCONF_SERVER_INFO_S info;
    CCONF_DefaultServerInfo(&info);
    for (const char* bad :
         {"02:11:22:33:44", "02:11:22:33:44:5g", "02-11-22-33-44-55", "02:11:22:33:44:55:66"})
        EXPECT_EQ(CCONF_ReadServerInfo(folder.write("s.conf", string("mac_address=") + bad).c_str(), &info),
                  1);
    EXPECT_STREQ(info.mac_address, "00:00:00:00:00:00");
}

TEST(Cconf, ThePagesNameEveryKeyWithItsRangeAndDefault)
{
    std::vector<string> rows;
    for (const TypedReader& reader : kReaders)
        for (const ConfKey& key : reader.table.keys)
            rows.push_back(reader.path + ' ' + section_of(key) + ' ' + key.name + ' ' + range_of(key, true) +
                           ' ' + key.fallback);
    EXPECT_EQ(rows_of_pages(), rows);
    string index = read_file(ZEP_SOURCE "/docs/man/zep-conf.5");
    for (const TypedReader& reader : kReaders)
        EXPECT_NE(index.find(reader.path.substr(reader.path.rfind('/') + 1)), string::npos) << reader.path;
}

// `int32_t mtu; /* 576..1500 (1500): ...`; a member of a numbered group lists the defaults of all.
TEST(Cconf, TheHeadersTellTheSameRangesAndDefaults)
{
    string headers;
    for (const char* name : {"network", "device", "video", "event", "server"})
        headers += read_file(string(ZEP_SOURCE "/common/cconf_") + name + ".h");
    for (const TypedReader& reader : kReaders) {
        size_t begin = headers.find("_PATH \"" + reader.path + "\"");
        ASSERT_NE(begin, string::npos) << reader.path;
        string part = headers.substr(begin, headers.find("CCONF_Read", begin) - begin);
        std::set<string> told;
        const std::regex field(R"((\w+)(?:\[\w+\])?; +/\* (\S+) \((.*?)\): )");
        for (std::sregex_iterator at(part.begin(), part.end(), field), end; at != end; ++at) {
            std::istringstream defaults((*at)[3].str() + ", ");
            for (string one; getline(defaults, one, ',');) {
                defaults.ignore(1);
                told.insert((*at)[1].str() + ' ' + (*at)[2].str() + ' ' + one);
            }
        }
        for (const ConfKey& key : reader.table.keys) {
            string tail = ' ' + range_of(key, false) + ' ' + key.fallback;
            string member = std::regex_replace(key.name, std::regex("^[a-z]+_[0-9]_"), "");
            EXPECT_TRUE(told.contains(key.name + tail) || told.contains(member + tail)) << key.name << tail;
        }
    }
}
