// The typed readers, each on its own: samples, defaults, pages, files that cannot be read.
#include "common/conf/conf_table.hpp"
#include "tests/support/memory_file.hpp"
#include "tests/support/temp_folder.hpp"
#include "tests/unit/common/reader_list.hpp"

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

// "SECTION key=value" of all keys that a file changes from their defaults.
std::vector<string> changes(const TypedReader& reader, const string& path)
{
    std::vector<string> list;
    AnyRecord record(reader);
    const auto before = record.texts();
    EXPECT_EQ(record.read(path), 1);
    EXPECT_TRUE(record.sound());
    for (size_t i = 0; i < before.size(); ++i) {
        const ConfKey& key = reader.table.keys[i];
        if (record.texts()[i] != before[i])
            list.push_back(section_of(key) + ' ' + key.name + '=' + record.texts()[i]);
    }
    return list;
}

// The same of all settings of a well-kept file: comments, sections, key=value, the value quoted or not.
std::vector<string> settings_in(const string& path)
{
    std::vector<string> list;
    std::istringstream file(read_file(path));
    std::smatch found;
    string section;
    for (string line; getline(file, line);) {
        if (std::regex_match(line, found, std::regex(R"(\[(\w+)\].*)"))) section = found[1];
        if (std::regex_match(line, found, std::regex(R"((\w+)=("?)(.*)\2)")))
            list.push_back(section + ' ' + string(found[1]) + '=' + string(found[3]));
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
        const string path = ZEP_SOURCE "/docs/examples" + reader.path;
        EXPECT_EQ(settings_in(path).size(), reader.table.keys.size());
        EXPECT_EQ(changes(reader, path), settings_in(path)) << "a sample differs from the defaults";
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
}

TEST(Cconf, AFileThatCannotBeOpenedIsLoggedAndLeavesTheRecord)
{
    openlog("test", LOG_PERROR, LOG_USER);
    for (const TypedReader& reader : kReaders) {
        AnyRecord record(reader);
        const auto before = record.texts();
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
        EXPECT_EQ(record.texts(), before);
    }
    closelog();
}

// The first key that a name begins with takes the value, in its section and when the value is whole and in range. A
// line is read up to its comment, a second name in it too, and in pieces of 255 bytes.
TEST(Cconf, AFileChangesTheFieldsThatItsLinesName)
{
    const string wall(10000, 'x'), blanks(255, ' ');
    const struct {
        string file, content;
        std::vector<string> changed;
    } cases[] = {
        {"general",
         "cam_alias_2=hall\ncam_alias=gate\ncam_alias_3x=stairs\n",
         {" cam_alias_2=hall", " cam_alias_3=stairs", " cam_alias=gate"}},
        {"web", "port_2=81\nhttps_port=444\n", {" port=81", " https_port=444"}},
        {"web", "#port=1\n ; \nport 81\nport=\nport=#1\nhttps_port=#444\n[port]\nport\n", {}},
        {"web", "port=81\nhttps_port= #444\n", {" port=81", " https_port=81"}},
        {"web", "port = \"81\" \r\n\thttps_port\t=\t444 #\n", {" port=81"}},
        {"web", "port=65535\nhttps_port=65536\nhttps_port=+444\n", {" port=65535", " https_port=444"}},
        {"web", "port=81=https_port=444", {" port=81", " https_port=444"}},
        {"web",
         wall + "\n#" + wall + "\nport=81\n" + blanks + "https_port=444\n",
         {" port=81", " https_port=444"}},
        {"web", blanks.substr(5) + "port=81\n", {}},
        {"web", string("port=81\0https_port=444\n", 23), {" port=81"}},
        {"eventcontrol",
         "port=1\nenable=1\n[FTP]\nport=2\n [EMAIL] \nport=3\n[OTHER]\nport=4\n",
         {"FTP port=2", "EMAIL port=3"}},
        {"eventcontrol",
         "[FTP\nport=2\n[EMAIL\r\nport=3\n[" + wall.substr(0, 40) + "]\nport=4\nx=1 [FTP]\nport=5\n",
         {"FTP port=2", "EMAIL port=3"}},
        {"network",
         "mtu=0577\nmtu=575\nmtu=1501\nmtu=0x400\nmtu=1e3\nmtu=999999999999999999999\nmtu=-1000\nmtu=1 000\n"
         "mtu=--1\nlink=100half\nlink=ful\nlink=full\nlink=auto 10half\nlink=100fullx\nlink=1\nlink=AUTO\n"
         "ip_address=1.2.3\nip_address=1.2.3.4.5\nip_address=256.1.1.1\nip_address=1.2.3.4/24\n"
         "ip_address=1..2.3\nip_address=fe80::1\nip_address=x\nhostname=" +
             wall,
         {" hostname=" + wall.substr(0, 63), " mtu=577", " link=100half"}},
        {"network", "mtu=576\n", {" mtu=576"}},
        {"network6",
         "ip_address=1.2.3.4\nip_address=fe80::1::2\nip_address=fd00::1\n",
         {" ip_address=fd00::1"}},
        {"serverinfo",
         "mac_address=02:11:22:33:44\nmac_address=02:11:22:33:44:5g\nmac_address=02-11-22-33-44-55\n"
         "mac_address=02:11:22:33:44:55:66\nmac_address=0211:22:33:44:555\n",
         {}},
        {"serverinfo", "mac_address=0f:Fa:A9:99:00:aF\n", {" mac_address=0f:Fa:A9:99:00:aF"}},
    };
    for (const auto& c : cases)
        for (const TypedReader& reader : kReaders)
            if (reader.path.ends_with('/' + c.file + ".conf")) {
                EXPECT_EQ(changes(reader, MemoryFile(c.content).path()), c.changed) << c.file;
            }
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
