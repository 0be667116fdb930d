// Operating-system accounts.
#include "common/accounts.h"
#include "tests/camera/libs/inside.hpp"
#include "tests/unit/common/known_hashes.hpp"

#include <algorithm>
#include <array>
#include <ctime>
#include <sys/stat.h>

namespace {

const string kPath = "/etc/passwd";
const string kTemp = "/etc/npasswd";

string superuser()
{
    char name[QRN_SUPERUSER_SIZE] = "untouched";
    int result = QRN_GetSuperUser(name);
    EXPECT_EQ(result, string(name) == "untouched" ? -1 : 0);
    return result == 0 ? name : "";
}

string superuser_of(const string& content)
{
    write_file(kPath, content);
    return superuser();
}

// The file after a change, with the new hash taken out for checking: "guest:*:...".
string after_set(const string& before, const char* user, const char* password)
{
    write_file(kPath, before);
    EXPECT_EQ(printed([&] { EXPECT_EQ(QRN_SetSystemPassword(user, password), 0); }), "");
    EXPECT_FALSE(exists(kTemp));
    EXPECT_EQ(QRN_CheckSystemPassword(user, password), 1);
    string after = read_file(kPath), name = string(user) + ":";
    for (size_t at = 0; at != string::npos; at = after.find('\n', at), at += at != string::npos) {
        if (after.compare(at, name.size(), name) != 0) continue;
        size_t hash = at + name.size();
        EXPECT_EQ(after.find_first_of(":\n", hash), hash + 13);
        after.replace(hash, 13, "*");
    }
    return after;
}

string salt_of(const char* user)
{
    string content = read_file(kPath);
    return content.substr(content.find(string(user) + ":") + strlen(user) + 1, 2);
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

const string kRoot = "root:abNANd1rDfiNc:0:0:superuser:/:/bin/sh\n";

} // namespace

TEST_F(Accounts, TheSuperuserIsTheFirstWhoseBothNumbersAreZero)
{
    EXPECT_EQ(superuser_of("bin:x:1:1::/:/bin/sh\nadmin:x:0:0::/:/bin/sh\n" + kRoot), "admin");
    EXPECT_EQ(superuser_of("half:x:0:5::/:\nflah:x:5:0::/:\n" + kRoot), "root");
    EXPECT_EQ(superuser_of("root::0:0::/root:/bin/sh"), "root") << "empty hash, empty gecos, no line end";
    EXPECT_EQ(superuser_of("a:x:::::\nb:::\nc:x:0\nd:x:zero:zero:::\n:x:0:0:::\ne:x: 0:0x:::\nf\n\n"), "");
    string piece = string(4095, 'x') + "crept:x:0:0::/:/bin/sh\n";
    EXPECT_EQ(superuser_of(piece + string(255, 'n') + ":x:0:0:::\n" + kRoot), string(255, 'n'));
    EXPECT_EQ(superuser_of(string(256, 'n') + ":x:0:0:::\n" + kRoot), "root");
    EXPECT_EQ(QRN_GetSuperUser(nullptr), -1);
    unlink(kPath.c_str());
    EXPECT_EQ(superuser(), "");
}

TEST_F(Accounts, HashesAreTheTraditionalOnes)
{
    for (const KnownHash& known : kKnownHashes) {
        write_file(kPath, "u:" + string(known.hash) + ":1:1:::\n");
        EXPECT_EQ(QRN_CheckSystemPassword("u", known.password), 1) << known.hash;
        EXPECT_EQ(QRN_CheckSystemPassword("u", "wrong"), 0) << known.hash;
    }
}

TEST_F(Accounts, AChangeTouchesTheHashOfOneUserOnly)
{
    string others = "# kept\nbin:*:1:1:bin:/bin:\r\nbroken line\n::::::\n" + kRoot;
    EXPECT_EQ(after_set(others + "guest:old:7:8:G. Uest:/home/g:/bin/sh:more\nlast:x:9:9:::", "guest", "new"),
              others + "guest:*:7:8:G. Uest:/home/g:/bin/sh:more\nlast:x:9:9:::\n");
    EXPECT_EQ(after_set("guest::7:7:::\nguests:x:7:7:::\nguest:x\n", "guest", "new"),
              "guest:*:7:7:::\nguests:x:7:7:::\nguest:*\n")
        << "every account of the name";
    EXPECT_EQ(after_set(kRoot, "root", "new"), "root:*:0:0:superuser:/:/bin/sh\n");
}

TEST_F(Accounts, AnUnknownUserIsAppended)
{
    EXPECT_EQ(after_set(kRoot, "guest", "pw"), kRoot + "guest:*:65534:65534:guest:/home:/bin/false\n");
    EXPECT_EQ(after_set("bin:x:1:1:::\n", "root", "pw"), "bin:x:1:1:::\nroot:*:0:0:superuser:/:/bin/sh\n");
    EXPECT_EQ(after_set("admin:x:0:0:::\n", "root", "pw"),
              "admin:x:0:0:::\nroot:*:65534:65534:root:/home:/bin/false\n")
        << "the superuser has another name";
    unlink(kPath.c_str());
    ASSERT_EQ(QRN_ChangeSystemPassword("root", "pw"), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("root", "pw"), 1) << "a missing file is made";
    struct stat info = {};
    ASSERT_EQ(stat(kPath.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
}

TEST_F(Accounts, TheFirstSaltOfAProcessComesFromTimeAndItsNumberAndTheNextDiffers)
{
    constexpr char kAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    write_file(kPath, kRoot);
    time_t begin = time(nullptr);
    pid_t child = fork();
    if (child == 0) {
        execl("/proc/self/exe", "inside_libs", "set_password", nullptr);
        _exit(127);
    }
    waitpid(child, nullptr, 0);
    string salts;
    for (time_t now = begin; now <= time(nullptr); ++now) {
        uint32_t x = uint32_t(now) + uint32_t(child);
        salts += {' ', kAlphabet[(x >> 18 ^ x >> 6) & 63], kAlphabet[(x ^ x >> 12) & 63]};
    }
    EXPECT_NE(salts.find(" " + salt_of("guest")), string::npos) << salts << " " << salt_of("guest");
    ASSERT_EQ(QRN_SetSystemPassword("guest", "a"), 0);
    string first = salt_of("guest");
    ASSERT_EQ(QRN_SetSystemPassword("guest", "a"), 0);
    EXPECT_NE(salt_of("guest"), first);
}

TEST_F(Accounts, PasswordsAreCutTo143CharactersOnChange)
{
    write_file(kPath, kRoot);
    EXPECT_EQ(QRN_ChangeSystemPassword("root", string(5000, 'p').c_str()), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("root", string(143, 'p').c_str()), 1);
    EXPECT_EQ(QRN_ChangeSystemPassword("root", nullptr), 0);
    EXPECT_EQ(QRN_CheckSystemPassword("root", "pppppppp"), 1) << "unchanged";
}

TEST_F(Accounts, WhatIsNoHashNeverMatches)
{
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
    unlink(kPath.c_str());
    EXPECT_EQ(QRN_CheckSystemPassword("root", "secret"), 0);
}

TEST_F(Accounts, ConfirmTakesTheScrambledForm)
{
    write_file(kPath, kRoot + "open::1:1:::\nlong:9AXTAB8W/zfvo:1:1:::\n");
    EXPECT_EQ(confirm_user("root", scrambled("secret", 0x5A).data()), 1);
    EXPECT_EQ(confirm_user("root", scrambled("secret", 0x00).data()), 1);
    EXPECT_EQ(confirm_user("root", scrambled("Secret", 0x5A).data()), 0);
    EXPECT_EQ(confirm_user("long", scrambled("123456789abcdefg", 0xFF).data()), 1) << "no terminator";
    EXPECT_EQ(printed([] { EXPECT_EQ(confirm_user("open", scrambled("", 1).data()), 0); }),
              "[confirm_user] salt is null\n");
    EXPECT_EQ(printed([] { EXPECT_EQ(confirm_user("nobody", scrambled("", 1).data()), 0); }), "");
    EXPECT_EQ(confirm_user("root", nullptr), 0);
    EXPECT_EQ(confirm_user(nullptr, scrambled("secret", 1).data()), 0);
}

TEST_F(Accounts, RefusalsAndFailuresLeaveTheFileWhole)
{
    isolated(CLONE_NEWNS, [] {
        ASSERT_EQ(mount("small", "/etc", "tmpfs", 0, "size=32k"), 0);
        string content = kRoot + "# " + string(3000, 'x') + "\n" + kRoot;
        write_file(kPath, content);
        auto unchanged = [&](const char* user, const char* password) {
            EXPECT_EQ(QRN_SetSystemPassword(user, password), 0);
            EXPECT_EQ(read_file(kPath), content);
            EXPECT_FALSE(exists(kTemp));
        };
        for (const char* user : {"", "a:b", "a\nb", "a\r"}) unchanged(user, "pw");
        unchanged(string(256, 'n').c_str(), "pw");
        unchanged(nullptr, "pw");
        unchanged("root", nullptr);
        write_file("/etc/fill", string(28672, 'f')); // all but the file's own page
        unchanged("root", "pw");
        unlink("/etc/fill");
        content += string(5000, 'y') + "\n";
        write_file(kPath, content);
        unchanged("root", "pw");
        content = kRoot;
        write_file(kPath, content);
        ASSERT_EQ(mkdir(kTemp.c_str(), 0700), 0);
        EXPECT_EQ(QRN_SetSystemPassword("root", "pw"), 0);
        EXPECT_EQ(read_file(kPath), content);
        ASSERT_EQ(rmdir(kTemp.c_str()), 0);
        write_file(kTemp, "left behind\n");
        ASSERT_EQ(chmod(kPath.c_str(), 0640), 0);
        EXPECT_EQ(QRN_SetSystemPassword("root", "pw"), 0);
        EXPECT_EQ(QRN_CheckSystemPassword("root", "pw"), 1);
        struct stat info = {};
        ASSERT_EQ(stat(kPath.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0640u);
        ASSERT_EQ(mount(nullptr, "/etc", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        content = read_file(kPath);
        unchanged("root", "other");
    });
}
