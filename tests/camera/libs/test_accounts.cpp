// Operating-system accounts.
#include "common/accounts.h"
#include "tests/camera/libs/inside.hpp"

#include <algorithm>
#include <array>
#include <ctime>

namespace {

const string kPath = "/etc/passwd";
const string kTemp = "/etc/npasswd";
const string kRoot = "root:abNANd1rDfiNc:0:0:superuser:/:/bin/sh\n";

// Where the hash of the user's account begins, from a place on.
size_t hash_at(const string& file, const string& user, size_t from = 0)
{
    const size_t at = ("\n" + file).find("\n" + user + ":", from);
    return at == string::npos ? at : at + user.size() + 1;
}

string salt_of(const string& user)
{
    const string file = read_file(kPath);
    return file.substr(hash_at(file, user), 2);
}

// As the user table scrambles, in binary.
std::array<uint8_t, 32> scrambled(const string& password, uint8_t key)
{
    std::array<uint8_t, 32> block = {};
    std::copy(password.begin(), password.end(), block.begin() + 16);
    for (uint8_t& byte : block) byte ^= key;
    block[0] = key;
    block[1] = 0x77;
    std::reverse(block.begin(), block.end());
    return block;
}

struct Accounts : testing::Test {
    string original = read_file(kPath);
    ~Accounts() override
    {
        write_file(kPath, original);
        chmod(kPath.c_str(), 0644);
    }
};

} // namespace

TEST_F(Accounts, TheSuperuserIsTheFirstWhoseBothNumbersAreZero)
{
    const string piece = string(4095, 'x') + "crept:x:0:0::/:/bin/sh\n";
    const std::pair<string, string> cases[] = {
        {"bin:x:1:1::/:/bin/sh\nadmin:x:0:0::/:/bin/sh\n" + kRoot, "admin"},
        {"half:x:0:5::/:\nflah:x:5:0::/:\n" + kRoot, "root"},
        {"root::0:0::/root:/bin/sh", "root"}, // empty hash, empty gecos, no line end
        {"a:x:::::\nb:::\nc:x:0\nd:x:zero:zero:::\n:x:0:0:::\ne:x: 0:0x:::\nf\n\n", ""},
        {piece + string(255, 'n') + ":x:0:0:::\n" + kRoot, string(255, 'n')},
        {string(256, 'n') + ":x:0:0:::\n" + kRoot, "root"},
    };
    for (const auto& [content, superuser] : cases) {
        write_file(kPath, content);
        char name[QRN_SUPERUSER_SIZE] = "";
        EXPECT_EQ(QRN_GetSuperUser(name), superuser.empty() ? -1 : 0);
        EXPECT_EQ(name, superuser);
    }
    EXPECT_EQ(QRN_GetSuperUser(nullptr), -1);
}

// Traditional hashes, made by an implementation other than the C libraries' of the targets; eight characters count.
TEST_F(Accounts, HashesAreTheTraditionalOnesAndWhatIsNoHashNeverMatches)
{
    const std::pair<const char*, const char*> known[] = {
        {"secret", "abNANd1rDfiNc"},     {"secret", "./17m29LFAflg"},   {"secret", "zZ5x4y8hS4SZE"},
        {"secret", "9AQXQ31yFb2qo"},     {"", "abmF1QH4PEr.E"},         {"", "./Una9Fi.seRo"},
        {"password12", "abJnggxhB/yWI"}, {"\xe4\xff", "zZgoThh7dsGKA"}, {"12345678", "9AXTAB8W/zfvo"},
        {"123456789", "9AXTAB8W/zfvo"},
    };
    for (const auto& [password, hash] : known) {
        write_file(kPath, "u:" + string(hash) + ":1:1:::\n");
        EXPECT_EQ(QRN_CheckSystemPassword("u", password), 1) << hash;
        EXPECT_EQ(QRN_CheckSystemPassword("u", "wrong"), 0) << hash;
    }
    // crypt answers null, "*0" or "*1" to these, or a text that is no hash.
    for (const char* hash : {"", "*", "*0", "*1", "!", "x", "!!", "a", "ab", ":", "$1$", "\xff\xff", "_"}) {
        write_file(kPath, "u:" + string(hash) + ":1:1:::\nv\n");
        for (const char* password : {"", "*0", "*1", "x", "ab", hash})
            EXPECT_EQ(QRN_CheckSystemPassword("u", password), 0) << hash << " " << password;
    }
    write_file(kPath, string(4095, 'x') + "crept:abNANd1rDfiNc:1:1:::\n" + kRoot);
    EXPECT_EQ(QRN_CheckSystemPassword("crept", "secret"), 0) << "a piece of a long line is no account";
    EXPECT_EQ(QRN_CheckSystemPassword("root", "secret"), 1);
    EXPECT_EQ(QRN_CheckSystemPassword("root", nullptr), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("nobody", "secret"), 0);
    EXPECT_EQ(QRN_CheckSystemPassword(nullptr, "secret"), 0);
}

TEST_F(Accounts, AChangeTouchesTheHashesOfOneUserOnlyAndAppendsAnUnknownOne)
{
    const string others = "# kept\nbin:*:1:1:bin:/bin:\r\nbroken line\n::::::\n" + kRoot;
    const struct {
        string before;
        const char* user;
        string after; // with the new hashes taken out for checking
    } cases[] = {
        {others + "guest:old:7:8:G. Uest:/home/g:/bin/sh:more\nlast:x:9:9:::", "guest",
         others + "guest:*:7:8:G. Uest:/home/g:/bin/sh:more\nlast:x:9:9:::\n"},
        {"guest::7:7:::\nguests:x:7:7:::\nguest:x\n", "guest", "guest:*:7:7:::\nguests:x:7:7:::\nguest:*\n"},
        {kRoot, "root", "root:*:0:0:superuser:/:/bin/sh\n"},
        {kRoot, "guest", kRoot + "guest:*:65534:65534:guest:/home:/bin/false\n"},
        {"bin:x:1:1:::\n", "root", "bin:x:1:1:::\nroot:*:0:0:superuser:/:/bin/sh\n"},
        // The superuser has another name.
        {"admin:x:0:0:::\n", "root", "admin:x:0:0:::\nroot:*:65534:65534:root:/home:/bin/false\n"},
    };
    for (const auto& c : cases) {
        write_file(kPath, c.before);
        EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_SetSystemPassword(c.user, "new"), 0); }), "");
        EXPECT_FALSE(exists(kTemp));
        EXPECT_EQ(QRN_CheckSystemPassword(c.user, "new"), 1);
        string after = read_file(kPath);
        for (size_t at = 0; (at = hash_at(after, c.user, at)) != string::npos;) {
            EXPECT_EQ(after.find_first_of(":\n", at), at + 13);
            after.replace(at, 13, "*");
        }
        EXPECT_EQ(after, c.after);
    }
    unlink(kPath.c_str());
    EXPECT_EQ(QRN_CheckSystemPassword("root", "secret"), 0);
    char name[QRN_SUPERUSER_SIZE];
    EXPECT_EQ(QRN_GetSuperUser(name), -1);
    ASSERT_EQ(QRN_ChangeSystemPassword("root", string(5000, 'p').c_str()), 0) << "a missing file is made";
    EXPECT_EQ(mode_of(kPath), 0644u);
    EXPECT_EQ(QRN_ChangeSystemPassword("root", nullptr), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("root", string(143, 'p').c_str()), 1) << "cut, and then unchanged";
}

TEST_F(Accounts, TheFirstSaltOfAProcessComesFromTimeAndItsNumberAndTheNextDiffers)
{
    constexpr char kAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    write_file(kPath, kRoot);
    const time_t begin = time(nullptr);
    const Said said = say("echo $$; exec /run/bin/inside_libs set_password");
    string salts;
    for (time_t now = begin; now <= time(nullptr); ++now) {
        uint32_t x = uint32_t(now) + uint32_t(std::stoul(said.text));
        salts += {' ', kAlphabet[(x >> 18 ^ x >> 6) & 63], kAlphabet[(x ^ x >> 12) & 63]};
    }
    EXPECT_NE(salts.find(" " + salt_of("guest")), string::npos) << salts << " " << salt_of("guest");
    ASSERT_EQ(QRN_SetSystemPassword("guest", "a"), 0);
    const string first = salt_of("guest");
    ASSERT_EQ(QRN_SetSystemPassword("guest", "a"), 0);
    EXPECT_NE(salt_of("guest"), first);
}

TEST_F(Accounts, ConfirmTakesTheScrambledForm)
{
    write_file(kPath, kRoot + "open::1:1:::\nlong:9AXTAB8W/zfvo:1:1:::\n");
    EXPECT_EQ(confirm_user("root", scrambled("secret", 0x5A).data()), 1);
    EXPECT_EQ(confirm_user("root", scrambled("secret", 0x00).data()), 1);
    EXPECT_EQ(confirm_user("root", scrambled("Secret", 0x5A).data()), 0);
    EXPECT_EQ(confirm_user("long", scrambled("123456789abcdefg", 0xFF).data()), 1) << "no terminator";
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(confirm_user("open", scrambled("", 1).data()), 0);
                  EXPECT_EQ(confirm_user("nobody", scrambled("", 1).data()), 0);
              }),
              "[confirm_user] salt is null\n");
    EXPECT_EQ(confirm_user("root", nullptr), 0);
    EXPECT_EQ(confirm_user(nullptr, scrambled("secret", 1).data()), 0);
}

TEST_F(Accounts, WhatIsRefusedLeavesTheFileAndAnOldTemporaryFileDoesNotHinder)
{
    const string longest(256, 'n'), long_line = kRoot + string(5000, 'y') + "\n";
    auto unchanged = [](const char* user, const char* password, const string& content) {
        write_file(kPath, content);
        EXPECT_EQ(QRN_SetSystemPassword(user, password), 0);
        EXPECT_EQ(read_file(kPath), content);
    };
    for (const char* user : {"", "a:b", "a\nb", "a\r", longest.c_str(), static_cast<const char*>(nullptr)})
        unchanged(user, "pw", kRoot);
    unchanged("root", nullptr, kRoot);
    unchanged("root", "pw", long_line);
    EXPECT_FALSE(exists(kTemp));
    ASSERT_EQ(mkdir(kTemp.c_str(), 0700), 0);
    unchanged("root", "pw", kRoot);
    ASSERT_EQ(rmdir(kTemp.c_str()), 0);
    write_file(kTemp, "left behind\n");
    ASSERT_EQ(chmod(kPath.c_str(), 0640), 0);
    EXPECT_EQ(QRN_SetSystemPassword("root", "pw"), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("root", "pw"), 1);
    EXPECT_EQ(mode_of(kPath), 0640u);
}
