// The service users' file.
#include "common/usertable.h"
#include "tests/camera/libs/inside.hpp"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace {

const string kPath = "/etc/qrnpasswd";
const string kTemp = "/etc/qrnpasswd.tmp";
const string kCannotLoad = "[USERTABLE_Init] Can't open /etc/qrnpasswd\n";
const string kCannotSave = "[USERTABLE_Init] Can't open /etc/qrnpasswd.tmp\n";

// Scrambled by another program: key, second byte and filler in turn 5A 01 zeros, 00 FF random, FF 00 random,
// C3 3C random, 81 18 random.
const string kSecret = "5A5A5A5A5A5A5A5A5A5A2E3F28393F295A5A5A5A5A5A5A5A5A5A5A5A5A5A015A";
const string kFifteen = "00782D73726168632D6E6565746669664DCBF3F0627784F00621F2BD4279FF00";
const string kEmpty = "ffffffffffffffffffffffffffffffff3525390d76f065eaaedff838b28900ff";
const string kLatin = "C3C3C3C3C3C3C3C3A7B135B4B0B027B3700614591C47AC3E86D1F27887203CC3";
const string kSixteen = "F8F9ACF2F3E0E9E2ACEFE4E4F5F9E8F277A1BE1009EDB426D20E8F2DF7511881";

std::vector<string> lines_of(const string& text)
{
    std::vector<string> lines;
    std::istringstream in(text);
    for (string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The block that a line of the file holds, unscrambled.
string block_of(const string& line)
{
    string hex = line.substr(line.find('/') + 1, 64), block;
    for (size_t i = 0; i < 64; i += 2)
        block.insert(block.begin(), char(std::stoi(hex.substr(i, 2), nullptr, 16)));
    for (size_t i = 2; i < 32; ++i) block[i] = char(block[i] ^ block[0]);
    return block;
}

string names_of(const USERTABLE_S& table)
{
    string names;
    for (int i = 0; i < table.count; ++i) names += string(table.entries[i].name) + " ";
    return names;
}

struct Users : testing::Test {
    USERTABLE_S table = {};

    Users() { unlink(kPath.c_str()); }
    ~Users() override
    {
        unlink(kPath.c_str());
        unlink(kTemp.c_str());
    }
    void load(const string& content)
    {
        write_file(kPath, content);
        ASSERT_EQ(USERTABLE_Init(&table), 0);
    }
    int add(const string& name, const string& password = "pw")
    {
        return USERTABLE_AddUser(&table, name.c_str(), password.c_str(), 1, 22, 255, 0);
    }
    // An operation that must leave the file as it is, and no temporary one.
    void refused(int result, auto&& operation)
    {
        string before = read_file(kPath);
        EXPECT_EQ(operation(), result);
        EXPECT_EQ(read_file(kPath), before);
        EXPECT_FALSE(exists(kTemp));
    }
};

} // namespace

TEST_F(Users, LoadReadsWhatAnotherProgramScrambled)
{
    load("a/" + kSecret + "/1/22/255/0/\n" + "fifteen-chars-n/" + kFifteen + "/0/0/0/0/\n" + "c/" + kEmpty +
         "/1/1/1/1\n" + "d/" + kLatin + "/ 7/-1/999/x1z/more/fields/\r\n" + "e/" + kSixteen + "/1/2/3/4/");
    EXPECT_EQ(names_of(table), "a fifteen-chars-n c d e ");
    EXPECT_STREQ(table.entries[0].password, "secret");
    EXPECT_EQ(table.entries[0].right2, 22);
    EXPECT_EQ(table.entries[0].right3, 255);
    EXPECT_STREQ(table.entries[1].password, "fifteen-chars-x");
    EXPECT_STREQ(table.entries[2].password, "");
    EXPECT_STREQ(table.entries[3].password, "p\xe4ssw\xf6rd");
    EXPECT_EQ(table.entries[3].right1, 7);
    EXPECT_EQ(table.entries[3].right2, 255);
    EXPECT_EQ(table.entries[3].right3, 999 & 255);
    EXPECT_EQ(table.entries[3].right4, 0);
    EXPECT_STREQ(table.entries[4].password, "sixteen-chars-xy") << "no room for a terminator in the block";
}

TEST_F(Users, LinesThatAreNoneAreSkippedAndTheRestLoads)
{
    const string good = "/" + kSecret + "/1/2/3/4/\n";
    string bad = "five/" + kSecret + "/1/2/3/\n" + "sixteen-letters-" + good + "/" + kSecret + "/1/2/3/4/\n" +
                 "long/" + kSecret + "/1/2/3/1234/\n" + "hole/" + kSecret + "/1//3/4/\n" + "short/" +
                 kSecret.substr(1) + "/1/2/3/4/\n" + "odd/" + kSecret.substr(1) + "g/1/2/3/4/\n" +
                 "\n\n/////\n";
    bad += string("nul\0/", 5) + kSecret + "/1/2/3/4/\n";
    bad += string(5000, 'x') + "\n" + string(300, '/') + "\n";
    load("first" + good + bad + "second" + good + bad + "third" + good);
    EXPECT_EQ(names_of(table), "first second third ");
    load("a" + good + "b" + good + "c" + good + "d" + good + "e" + good + "f" + good);
    EXPECT_EQ(names_of(table), "a b c d e ") << "five are all";
    load("");
    EXPECT_EQ(table.count, 0);
}

TEST_F(Users, TheFirstUserMakesTheFileWithTheLoadersMessage)
{
    EXPECT_EQ(printed([&] { EXPECT_EQ(USERTABLE_Init(&table), -1); }), kCannotLoad);
    EXPECT_EQ(printed([&] { EXPECT_EQ(add("Root", "fifteen-chars-x"), 0); }), kCannotLoad);
    string line = read_file(kPath);
    EXPECT_EQ(line.substr(0, 5), "Root/");
    EXPECT_EQ(line.substr(69), "/1/22/255/0/\n");
    EXPECT_EQ(line.find_first_not_of("0123456789ABCDEF", 5), 69u) << "upper-case digits";
    EXPECT_EQ(block_of(line).substr(16), string("fifteen-chars-x\0", 16));
    struct stat info = {};
    ASSERT_EQ(stat(kPath.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_FALSE(exists(kTemp));
}

TEST_F(Users, TheKeyIsTheRandomValueOfTheSecondAndEverySaveLooksDifferent)
{
    load("a/" + kSecret + "/1/2/3/4/\n");
    time_t before = time(nullptr);
    ASSERT_EQ(USERTABLE_Save(&table), 0);
    string first = read_file(kPath), block = block_of(first);
    bool found = false;
    for (time_t second = before; second <= time(nullptr); ++second) {
        srandom(unsigned(second));
        long value = random();
        found = found || (block[0] == char(value) && block[1] == char(value >> 8));
    }
    EXPECT_TRUE(found);
    ASSERT_EQ(USERTABLE_Save(&table), 0);
    EXPECT_NE(read_file(kPath), first);
    USERTABLE_S again;
    ASSERT_EQ(USERTABLE_Init(&again), 0);
    EXPECT_STREQ(again.entries[0].password, "secret");
}

TEST_F(Users, AddRefusesWhatDoesNotFitAndLeavesTheFile)
{
    load("a/" + kSecret + "/1/2/3/4/\n");
    for (const char* name : {"root", "a", "", "sixteen-letters-", "x/y", "x\ny", "x\ry"})
        refused(-1, [&] { return add(name); });
    refused(-1, [&] { return add("b", string(32, 'p')); });
    EXPECT_EQ(add("fifteen-letters", string(31, 'p')), 0);
    EXPECT_STREQ(table.entries[1].password, string(31, 'p').c_str()) << "whole in memory";
    USERTABLE_Init(&table);
    EXPECT_STREQ(table.entries[1].password, string(15, 'p').c_str()) << "cut in the file";
    EXPECT_EQ(add("c") | add("d") | add("A"), 0);
    refused(-1, [&] { return add("sixth"); });
    EXPECT_EQ(lines_of(read_file(kPath)).size(), 5u);
}

// The file stores passwords as hexadecimal digits: no byte of one can break its lines.
TEST_F(Users, PasswordsHoldAnyByteButZero)
{
    load("");
    for (int first = 1; first < 256; first += 15) {
        string password;
        for (int byte = first; byte < first + 15; ++byte) password += char(byte);
        ASSERT_EQ(add("b", password), 0);
        ASSERT_EQ(USERTABLE_Init(&table), 0);
        EXPECT_EQ(table.entries[0].password, password);
        ASSERT_EQ(USERTABLE_SetPassword(&table, "b", "/\n\r/"), 0);
        ASSERT_EQ(USERTABLE_Init(&table), 0);
        EXPECT_STREQ(table.entries[0].password, "/\n\r/");
        ASSERT_EQ(USERTABLE_DeleteUser(&table, "b"), 0);
    }
}

TEST_F(Users, AddAndDeleteStartFromWhatOthersSaved)
{
    USERTABLE_S other;
    load("a/" + kSecret + "/1/2/3/4/\n");
    ASSERT_EQ(USERTABLE_Init(&other), 0);
    ASSERT_EQ(USERTABLE_AddUser(&other, "b", "x", 0, 0, 0, 0), 0);
    EXPECT_EQ(add("c"), 0);
    EXPECT_EQ(names_of(table), "a b c ");
    ASSERT_EQ(USERTABLE_DeleteUser(&other, "a"), 0);
    EXPECT_EQ(names_of(other), "c b ") << "the last one takes the place";
    EXPECT_EQ(lines_of(read_file(kPath))[0].substr(0, 2), "c/");
    EXPECT_STREQ(other.entries[2].name, "c") << "the old copy stays behind the count";
    ASSERT_EQ(USERTABLE_DeleteUser(&table, "b"), 0);
    refused(-1, [&] { return USERTABLE_DeleteUser(&table, "b"); });
    ASSERT_EQ(USERTABLE_DeleteUser(&table, "c"), 0);
    EXPECT_EQ(read_file(kPath), "");
    refused(-1, [&] { return USERTABLE_DeleteUser(&table, ""); });
}

TEST_F(Users, ChangesWorkOnTheCallersCopyAndOnSlotsBehindTheCount)
{
    load("a/" + kSecret + "/1/2/3/4/\nb/" + kSecret + "/1/2/3/4/\n");
    write_file(kPath, "gone/" + kSecret + "/1/2/3/4/\n");
    EXPECT_EQ(USERTABLE_SetRights(&table, "b", 9, 8, 7, 6), 0);
    EXPECT_EQ(USERTABLE_SetPassword(&table, "a", string(31, 'q').c_str()), 0);
    auto lines = lines_of(read_file(kPath));
    ASSERT_EQ(lines.size(), 2u) << "the other process's change is lost";
    EXPECT_EQ(block_of(lines[0]).substr(16), string(15, 'q') + '\0');
    EXPECT_EQ(lines[1].substr(66), "/9/8/7/6/");
    refused(-2, [&] { return USERTABLE_SetPassword(&table, "a", string(32, 'q').c_str()); });
    refused(-1, [&] { return USERTABLE_SetPassword(&table, "c", "q"); });
    refused(-1, [&] { return USERTABLE_SetRights(&table, "c", 0, 0, 0, 0); });
    EXPECT_EQ(USERTABLE_SetPassword(&table, "", "hidden"), 0) << "the first empty slot";
    EXPECT_STREQ(table.entries[2].password, "hidden");
    EXPECT_EQ(lines_of(read_file(kPath)).size(), 2u) << "not written";
    table.entries[1].name[0] = '\0';
    refused(-1, [&] { return USERTABLE_Save(&table); });
    table.count = 6;
    refused(-1, [&] { return USERTABLE_Save(&table); });
}

TEST_F(Users, ASaveThatFailsLeavesTheOldFileWhole)
{
    isolated(CLONE_NEWNS, [&] {
        ASSERT_EQ(mount("small", "/etc", "tmpfs", 0, "size=12k"), 0);
        load("a/" + kSecret + "/1/2/3/4/\n");
        write_file("/etc/fill", string(8192, 'f'));
        refused(-2, [&] { return add("b"); });
        unlink("/etc/fill");
        ASSERT_EQ(chmod(kPath.c_str(), 0644), 0);
        EXPECT_EQ(add("b"), 0);
        struct stat info = {};
        ASSERT_EQ(stat(kPath.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600u) << "an old file that others could read";
        ASSERT_EQ(mkdir(kTemp.c_str(), 0700), 0);
        EXPECT_EQ(printed([&] { EXPECT_EQ(add("c"), -1); }), kCannotSave);
        ASSERT_EQ(rmdir(kTemp.c_str()), 0);
        symlink("/etc/victim", kTemp.c_str());
        EXPECT_EQ(add("c"), 0) << "an old temporary name is cleared, not followed";
        EXPECT_FALSE(exists("/etc/victim"));
    });
    isolated(CLONE_NEWNS, [&] {
        write_file(kPath, "");
        ASSERT_EQ(mount("none", "/etc", "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mkdir(kPath.c_str(), 0700), 0);
        EXPECT_EQ(USERTABLE_Save(&table), -2) << "a folder cannot be replaced";
        EXPECT_EQ(printed([&] { EXPECT_EQ(USERTABLE_Init(&table), -1); }), kCannotLoad);
        EXPECT_FALSE(exists(kTemp));
    });
}

// Descriptors run out, so the file that is there cannot be opened: nobody's account is lost by that.
TEST_F(Users, AFileThatCannotBeReadIsNotReplacedByTheNewUser)
{
    load("a/" + kSecret + "/1/2/3/4/\n");
    unlink(kPath.c_str());
    ASSERT_EQ(mkdir(kPath.c_str(), 0700), 0);
    EXPECT_EQ(printed([&] { EXPECT_EQ(add("b"), -1); }), kCannotLoad);
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(rmdir(kPath.c_str()), 0) << "empty as it was";
}
