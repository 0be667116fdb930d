// The writers that go through /etc/temp.conf.
#include "common/cutil_conf.h"
#include "tests/camera/libs/inside.hpp"

#include <sys/stat.h>

namespace {

const string kTemp = CUTIL_CONF_TEMP_PATH;
const string kPath = "/etc/inside.conf";

string after_set(const string& before, const char* key, const char* value)
{
    write_file(kPath, before);
    EXPECT_EQ(CUTIL_SetConfValue(kPath.c_str(), key, value), 0);
    EXPECT_FALSE(exists(kTemp)) << "the lock goes with the rename";
    return read_file(kPath);
}

string after_set_sep(int separator, const string& before, const char* key, const char* value)
{
    write_file(kPath, before);
    EXPECT_EQ(CUTIL_SetConfValueSep(separator, kPath.c_str(), key, value), 0);
    EXPECT_FALSE(exists(kTemp));
    return read_file(kPath);
}

struct Conf : testing::Test {
    ~Conf() override
    {
        unlink(kPath.c_str());
        unlink(kTemp.c_str());
    }
};

} // namespace

TEST_F(Conf, SetReplacesEveryLineWhoseWholeKeyMatches)
{
    EXPECT_EQ(after_set("IPADDR=1\nIP=2\nIP 3\nIP\nIP\t=4\n IP=5\n#IP=6\nIP#=7\nIP=8\r\n", "IP", "9"),
              "IPADDR=1\nIP=9\nIP=9\nIP\nIP\t=4\n IP=5\n#IP=6\nIP#=7\nIP=9\n");
    EXPECT_EQ(after_set("a=1\nIP", "IP", "9"), "a=1\nIP=9\n") << "the last line has no line end to differ by";
    EXPECT_EQ(after_set("a=1", "IP", "9"), "a=1\nIP=9\n");
    EXPECT_EQ(after_set("", "IP", ""), "IP=\n");
}

TEST_F(Conf, SetSeesLinesInPiecesOf255Characters)
{
    string piece(255, 'x');
    EXPECT_EQ(after_set(piece + "k=1\nb=2\n", "k", "v"), piece + "k=v\nb=2\n");
    EXPECT_EQ(after_set(string(254, 'x') + "\nk=1", "k", "v"), string(254, 'x') + "\nk=v\n");
    EXPECT_EQ(after_set("k=" + string(10000, 'y') + "\n", "k", "v"),
              "k=v\n" + string(10002 - 255, 'y') + "\n");
}

TEST_F(Conf, SetSepReplacesByPrefixWithItsSeparatorAndWithoutALock)
{
    EXPECT_EQ(after_set_sep(' ', "IPADDR=1\nb=2\nIP=3\n", "IP", "9"), "IP 9\nb=2\nIP 9\n");
    EXPECT_EQ(after_set_sep(':', "b=2\n", "IP", "9"), "b=2\nIP:9\n");
    write_file(kTemp, "another writer's\n");
    EXPECT_EQ(after_set_sep('=', "b=2\n", "b", "3"), "b=3\n");
}

TEST_F(Conf, RefusalsComeInOrderWithTheirLineAndLeaveTheFileAlone)
{
    auto refused = [](int result, const string& path, const string& line) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(CUTIL_SetConfValue(path.c_str(), "a", "2"), result); }), line);
    };
    write_file(kPath, "a=1\n");
    write_file(kTemp, "");
    refused(-1, "/etc/none", "[CUTIL_SetConfValue] temp.conf is already used ...\n");
    refused(-1, kPath, "[CUTIL_SetConfValue] temp.conf is already used ...\n");
    EXPECT_TRUE(exists(kTemp)) << "another writer's lock stays";
    unlink(kTemp.c_str());
    symlink("/nowhere", kTemp.c_str());
    refused(-1, kPath, "[CUTIL_SetConfValue] temp.conf is already used ...\n");
    unlink(kTemp.c_str());
    refused(-1, "/etc/none", "[CUTIL_SetConfValue] we can't open the file : /etc/none\n");
    EXPECT_FALSE(exists(kTemp));
    EXPECT_EQ(printed([&] { EXPECT_EQ(CUTIL_SetConfValueSep('=', "/etc/none", "a", "2"), -1); }),
              "[CUTIL_SetConfValue] we can't open the file : /etc/none\n");
    EXPECT_EQ(read_file(kPath), "a=1\n");
}

// /tmp is another file system than /etc: the last step fails.
TEST_F(Conf, AFailingRenameRemovesTheTemporaryFileSoThatItLocksNobodyOut)
{
    string path = write_file("/tmp/inside.conf", "a=1\n");
    EXPECT_EQ(CUTIL_SetConfValue(path.c_str(), "a", "2"), -3);
    EXPECT_FALSE(exists(kTemp));
    EXPECT_EQ(CUTIL_SetConfValueSep('=', path.c_str(), "a", "2"), -1);
    EXPECT_EQ(read_file(path), "a=1\n");
    EXPECT_EQ(CUTIL_SetConfValue("/etc", "a", "2"), -3) << "a folder opens but cannot be read";
    EXPECT_FALSE(exists(kTemp));
}

TEST_F(Conf, AReadOnlyFolderGivesMinusTwo)
{
    isolated(CLONE_NEWNS, [] {
        ASSERT_EQ(mount("small", "/etc", "tmpfs", MS_RDONLY, nullptr), 0);
        write_file("/tmp/inside.conf", "a=1\n");
        string line = "[CUTIL_SetConfValue] we can't open the file : /etc/temp.conf\n";
        EXPECT_EQ(printed([&] { EXPECT_EQ(CUTIL_SetConfValue("/tmp/inside.conf", "a", "2"), -2); }), line);
        EXPECT_EQ(printed([&] { EXPECT_EQ(CUTIL_SetConfValueSep('=', "/tmp/inside.conf", "a", "2"), -1); }),
                  line);
    });
}

TEST_F(Conf, AFullFileSystemLeavesTheOldFileWholeAndNoTemporaryFile)
{
    isolated(CLONE_NEWNS, [] {
        ASSERT_EQ(mount("small", "/etc", "tmpfs", 0, "size=32k"), 0);
        string content = "a=1\n" + string(12000, 'x') + "\n";
        write_file(kPath, content);
        ASSERT_EQ(chmod(kPath.c_str(), 0604), 0);
        write_file("/etc/fill", string(12288, 'f'));
        EXPECT_EQ(CUTIL_SetConfValue(kPath.c_str(), "a", "2"), -3);
        EXPECT_EQ(CUTIL_SetConfValueSep('=', kPath.c_str(), "a", "2"), -1);
        EXPECT_EQ(CUTIL_SetFileValue(kPath.c_str(), "/etc/other.tmp", "a", "2"), -1);
        EXPECT_EQ(read_file(kPath), content);
        EXPECT_FALSE(exists(kTemp) || exists("/etc/other.tmp"));
        unlink("/etc/fill");
        EXPECT_EQ(CUTIL_SetConfValue(kPath.c_str(), "a", "2"), 0);
        EXPECT_EQ(read_file(kPath), "a=2" + content.substr(3));
        struct stat info = {};
        EXPECT_EQ(stat(kPath.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0604u);
    });
}
