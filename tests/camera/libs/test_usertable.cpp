// The service users' file.
#include "common/usertable.h"
#include "tests/camera/libs/inside.hpp"

#include <ctime>

namespace {

const string kUsers = "/etc/qrnpasswd";
const string kUsersTemp = "/etc/qrnpasswd.tmp";
const string kCannotLoad = "[USERTABLE_Init] Can't open /etc/qrnpasswd\n";
const string kCannotSave = "[USERTABLE_Init] Can't open /etc/qrnpasswd.tmp\n";

// Scrambled by another program: key, second byte and filler in turn 5A 01 zeros, 00 FF random, FF 00 random,
// C3 3C random, 81 18 random.
const string kSecret = "5A5A5A5A5A5A5A5A5A5A2E3F28393F295A5A5A5A5A5A5A5A5A5A5A5A5A5A015A";
const string kFifteen = "00782D73726168632D6E6565746669664DCBF3F0627784F00621F2BD4279FF00";
const string kEmpty = "ffffffffffffffffffffffffffffffff3525390d76f065eaaedff838b28900ff";
const string kLatin = "C3C3C3C3C3C3C3C3a7b135b4b0b027b3700614591C47AC3E86D1F27887203CC3";
const string kSixteen = "F8F9ACF2F3E0E9E2ACEFE4E4F5F9E8F277A1BE1009EDB426D20E8F2DF7511881";
const string kGood = "/" + kSecret + "/1/2/3/4/\n";

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

    Users() { unlink(kUsers.c_str()); }
    ~Users() override
    {
        unlink(kUsers.c_str());
        unlink(kUsersTemp.c_str());
    }
    void load(const string& content)
    {
        write_file(kUsers, content);
        ASSERT_EQ(USERTABLE_Init(&table), 0);
    }
    int add(const string& name, const string& password = "pw")
    {
        return USERTABLE_AddUser(&table, name.c_str(), password.c_str(), 1, 22, 255, 0);
    }
    // What an operation gives that must leave the file as it is, and no temporary one.
    static int refused(auto&& operation)
    {
        const string before = read_file(kUsers);
        const int result = operation();
        EXPECT_EQ(read_file(kUsers), before);
        EXPECT_FALSE(exists(kUsersTemp));
        return result;
    }
};

} // namespace

TEST_F(Users, LoadReadsWhatAnotherProgramScrambledAndSkipsOtherLines)
{
    load("a/" + kSecret + "/1/22/255/0/\n" + "fifteen-chars-n/" + kFifteen + "/0/0/0/0/\n" + "c/" + kEmpty +
         "/1/1/1/1\n" + "d/" + kLatin + "/ 7/-1/999/x1z/more/fields/\r\n" + "e/" + kSixteen + "/1/2/3/4/");
    EXPECT_EQ(names_of(table), "a fifteen-chars-n c d e ");
    // No room for a terminator in the last one's block.
    const char* passwords[] = {"secret", "fifteen-chars-x", "", "p\xe4ssw\xf6rd", "sixteen-chars-xy"};
    for (int i = 0; i < 5; ++i) EXPECT_STREQ(table.entries[i].password, passwords[i]);
    EXPECT_EQ(table.entries[0].right2, 22);
    EXPECT_EQ(table.entries[0].right3, 255);
    EXPECT_EQ(table.entries[3].right1, 7);
    EXPECT_EQ(table.entries[3].right2, 255);
    EXPECT_EQ(table.entries[3].right3, 999 & 255);
    EXPECT_EQ(table.entries[3].right4, 0);

    const string tail = "/1/2/3/4/\n", longer = "/" + kSecret + "0" + tail, odd = "/" + kSecret.substr(1);
    const string bad = "five/" + kSecret + "/1/2/3/\n" + "sixteen-letters-" + kGood + kGood + "long/" +
                       kSecret + "/1/2/3/1234/\n" + "hole/" + kSecret + "/1//3/4/\n" + "longer" + longer +
                       "short" + odd + tail + "odd" + odd + "g" + tail + "\n\n/////\n" + string("nul\0", 4) +
                       kGood + string(5000, 'x') + "\n" + string(300, '/') + "\n";
    load("first" + kGood + bad + "second" + kGood + bad + "third" + kGood);
    EXPECT_EQ(names_of(table), "first second third ");
    load("a" + kGood + "b" + kGood + "c" + kGood + "d" + kGood + "e" + kGood + "f" + kGood);
    EXPECT_EQ(names_of(table), "a b c d e ") << "five are all";
    load("");
    EXPECT_EQ(table.count, 0);
}

TEST_F(Users, TheFirstUserMakesTheFileWithTheLoadersMessage)
{
    EXPECT_EQ(printed([&] { EXPECT_EQ(USERTABLE_Init(&table), -1); }), kCannotLoad);
    EXPECT_EQ(printed([&] { EXPECT_EQ(add("Root", "fifteen-chars-x"), 0); }), kCannotLoad);
    const string line = read_file(kUsers);
    EXPECT_EQ(line.substr(0, 5), "Root/");
    EXPECT_EQ(line.substr(69), "/1/22/255/0/\n");
    EXPECT_EQ(line.find_first_not_of("0123456789ABCDEF", 5), 69u) << "upper-case digits";
    EXPECT_EQ(block_of(line).substr(16), string("fifteen-chars-x\0", 16));
    EXPECT_EQ(mode_of(kUsers), 0600u);
    EXPECT_FALSE(exists(kUsersTemp));
}

TEST_F(Users, TheKeyIsTheRandomValueOfTheSecondAndEverySaveLooksDifferent)
{
    load("a" + kGood);
    const time_t before = time(nullptr);
    ASSERT_EQ(USERTABLE_Save(&table), 0);
    const string first = read_file(kUsers), block = block_of(first);
    bool found = false;
    for (time_t second = before; second <= time(nullptr); ++second) {
        srandom(unsigned(second));
        long value = random();
        found = found || (block[0] == char(value) && block[1] == char(value >> 8));
    }
    EXPECT_TRUE(found);
    ASSERT_EQ(USERTABLE_Save(&table), 0);
    EXPECT_NE(read_file(kUsers), first);
    ASSERT_EQ(USERTABLE_Init(&table), 0);
    EXPECT_STREQ(table.entries[0].password, "secret");
}

// The file stores passwords as hexadecimal digits: no byte of one can break its lines.
TEST_F(Users, AddTakesAnyBytesButZeroAndRefusesWhatDoesNotFit)
{
    load("");
    for (int first = 1; first < 256; first += 15) {
        string password;
        for (int byte = first; byte < first + 15; ++byte) password += char(byte);
        ASSERT_EQ(add("b", password), 0);
        ASSERT_EQ(USERTABLE_Init(&table), 0);
        EXPECT_EQ(table.entries[0].password, password);
        ASSERT_EQ(USERTABLE_DeleteUser(&table, "b"), 0);
    }
    load("a" + kGood);
    for (const char* name : {"root", "a", "", "sixteen-letters-", "x/y", "x\ny", "x\ry"})
        EXPECT_EQ(refused([&] { return add(name); }), -1) << name;
    EXPECT_EQ(refused([&] { return add("b", string(32, 'p')); }), -1);
    EXPECT_EQ(add("fifteen-letters", string(31, 'p')), 0);
    EXPECT_EQ(table.entries[1].password, string(31, 'p')) << "whole in memory";
    USERTABLE_Init(&table);
    EXPECT_EQ(table.entries[1].password, string(15, 'p')) << "cut in the file";
    EXPECT_EQ(add("c") | add("d") | add("A"), 0);
    EXPECT_EQ(refused([&] { return add("sixth"); }), -1);
}

TEST_F(Users, AddAndDeleteStartFromWhatOthersSaved)
{
    USERTABLE_S other;
    load("a" + kGood);
    ASSERT_EQ(USERTABLE_Init(&other), 0);
    ASSERT_EQ(USERTABLE_AddUser(&other, "b", "x", 0, 0, 0, 0), 0);
    EXPECT_EQ(add("c"), 0);
    EXPECT_EQ(names_of(table), "a b c ");
    ASSERT_EQ(USERTABLE_DeleteUser(&other, "a"), 0);
    EXPECT_EQ(names_of(other), "c b ") << "the last one takes the place";
    EXPECT_EQ(read_file(kUsers).substr(0, 2), "c/");
    EXPECT_STREQ(other.entries[2].name, "c") << "the old copy stays behind the count";
    ASSERT_EQ(USERTABLE_DeleteUser(&table, "b"), 0);
    EXPECT_EQ(refused([&] { return USERTABLE_DeleteUser(&table, "b"); }), -1);
    ASSERT_EQ(USERTABLE_DeleteUser(&table, "c"), 0);
    EXPECT_EQ(read_file(kUsers), "");
    EXPECT_EQ(refused([&] { return USERTABLE_DeleteUser(&table, ""); }), -1);
}

TEST_F(Users, ChangesWorkOnTheCallersCopyAndOnSlotsBehindTheCount)
{
    load("a" + kGood + "b" + kGood);
    write_file(kUsers, "gone" + kGood);
    EXPECT_EQ(USERTABLE_SetRights(&table, "b", 9, 8, 7, 6), 0);
    EXPECT_EQ(USERTABLE_SetPassword(&table, "a", string(31, 'q').c_str()), 0);
    const string file = read_file(kUsers);
    EXPECT_EQ(block_of(file).substr(16), string(15, 'q') + '\0');
    EXPECT_EQ(file.substr(66, 12), "/1/2/3/4/\nb/") << "the other process's change is lost";
    EXPECT_EQ(file.substr(78 + 64), "/9/8/7/6/\n");
    EXPECT_EQ(refused([&] { return USERTABLE_SetPassword(&table, "a", string(32, 'q').c_str()); }), -2);
    EXPECT_EQ(refused([&] { return USERTABLE_SetPassword(&table, "c", "q"); }), -1);
    EXPECT_EQ(refused([&] { return USERTABLE_SetRights(&table, "c", 0, 0, 0, 0); }), -1);
    EXPECT_EQ(USERTABLE_SetPassword(&table, "", "hidden"), 0) << "the first empty slot";
    EXPECT_STREQ(table.entries[2].password, "hidden");
    EXPECT_EQ(read_file(kUsers).size(), file.size()) << "not written";
    table.entries[1].name[0] = '\0';
    EXPECT_EQ(refused([&] { return USERTABLE_Save(&table); }), -1);
    table.count = 6;
    EXPECT_EQ(refused([&] { return USERTABLE_Save(&table); }), -1);
}

TEST_F(Users, ASaveIsForItsOwnerOnlyAndReplacesFilesOnly)
{
    load("a" + kGood);
    ASSERT_EQ(chmod(kUsers.c_str(), 0644), 0);
    EXPECT_EQ(add("b"), 0);
    EXPECT_EQ(mode_of(kUsers), 0600u) << "an old file that others could read";
    ASSERT_EQ(mkdir(kUsersTemp.c_str(), 0700), 0);
    EXPECT_EQ(printed([&] { EXPECT_EQ(add("c"), -1); }), kCannotSave);
    ASSERT_EQ(rmdir(kUsersTemp.c_str()), 0);
    symlink("/etc/victim", kUsersTemp.c_str());
    EXPECT_EQ(add("c"), 0) << "an old temporary name is cleared, not followed";
    EXPECT_FALSE(exists("/etc/victim"));
    // A folder cannot be replaced or read, and no new user takes the place of what cannot be read.
    unlink(kUsers.c_str());
    ASSERT_EQ(mkdir(kUsers.c_str(), 0700), 0);
    EXPECT_EQ(USERTABLE_Save(&table), -2);
    EXPECT_EQ(printed([&] { EXPECT_EQ(USERTABLE_Init(&table) + add("b"), -2); }), kCannotLoad + kCannotLoad);
    EXPECT_EQ(table.count, 0);
    EXPECT_FALSE(exists(kUsersTemp));
    EXPECT_EQ(rmdir(kUsers.c_str()), 0) << "empty as it was";
}
