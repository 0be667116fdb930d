// The writers that go through /etc/temp.conf.
#include "common/cutil_conf.h"
#include "tests/camera/libs/inside.hpp"

namespace {

const string kWritten = CUTIL_CONF_TEMP_PATH;
const string kConf = "/etc/inside.conf";

// With a separator, or 0 for the writer of whole keys, which has none.
int set(int separator, const string& path, const char* key, const char* value)
{
    if (separator) return CUTIL_SetConfValueSep(separator, path.c_str(), key, value);
    return CUTIL_SetConfValue(path.c_str(), key, value);
}

struct Conf : testing::Test {
    ~Conf() override
    {
        unlink(kConf.c_str());
        unlink(kWritten.c_str());
    }
    // Sets "a" to 2 in vain.
    static void refused(int separator, const string& path, int result, const string& line)
    {
        EXPECT_EQ(printed([&] { EXPECT_EQ(set(separator, path, "a", "2"), result); }),
                  line.empty() ? line : "[CUTIL_SetConfValue] " + line + "\n");
    }
};

} // namespace

TEST_F(Conf, SetReplacesEveryLineWhoseWholeKeyMatchesOrWithASeparatorItsBeginning)
{
    const string piece(255, 'x'); // lines are seen in such pieces
    const struct {
        int separator;
        string before;
        const char *key, *value;
        string after;
    } cases[] = {
        {0, "IPADDR=1\nIP=2\nIP 3\nIP\nIP\t=4\n IP=5\n#IP=6\nIP#=7\nIP=8\r\n", "IP", "9",
         "IPADDR=1\nIP=9\nIP=9\nIP\nIP\t=4\n IP=5\n#IP=6\nIP#=7\nIP=9\n"},
        {0, "a=1\nIP", "IP", "9", "a=1\nIP=9\n"}, // the last line has no line end to differ by
        {0, "a=1", "IP", "9", "a=1\nIP=9\n"},
        {0, "", "IP", "", "IP=\n"},
        {0, piece + "k=1\nb=2\n", "k", "v", piece + "k=v\nb=2\n"},
        {0, piece.substr(1) + "\nk=1", "k", "v", piece.substr(1) + "\nk=v\n"},
        {0, "k=" + string(10000, 'y') + "\n", "k", "v", "k=v\n" + string(10002 - 255, 'y') + "\n"},
        {' ', "IPADDR=1\nb=2\nIP=3\n", "IP", "9", "IP 9\nb=2\nIP 9\n"},
        {':', "b=2\n", "IP", "9", "b=2\nIP:9\n"},
    };
    for (const auto& c : cases) {
        write_file(kConf, c.before);
        EXPECT_EQ(set(c.separator, kConf, c.key, c.value), 0);
        EXPECT_FALSE(exists(kWritten)) << "the lock goes with the rename";
        EXPECT_EQ(read_file(kConf), c.after);
    }
}

TEST_F(Conf, RefusalsComeInOrderWithTheirLineAndLeaveTheFileAlone)
{
    write_file(kConf, "a=1\n");
    write_file(kWritten, "another writer's\n");
    refused(0, "/etc/none", -1, "temp.conf is already used ...");
    refused(0, kConf, -1, "temp.conf is already used ...");
    EXPECT_TRUE(exists(kWritten)) << "another writer's lock stays";
    unlink(kWritten.c_str());
    symlink("/nowhere", kWritten.c_str());
    refused(0, kConf, -1, "temp.conf is already used ...");
    unlink(kWritten.c_str());
    for (int separator : {0, int('=')})
        refused(separator, "/etc/none", -1, "we can't open the file : /etc/none");
    EXPECT_FALSE(exists(kWritten));
    EXPECT_EQ(read_file(kConf), "a=1\n");
    write_file(kWritten, "another writer's\n");
    EXPECT_EQ(set('=', kConf, "a", "3"), 0) << "no lock for this one";
    EXPECT_EQ(read_file(kConf), "a=3\n");
}

// /tmp is another file system than /etc: the last step fails. A temporary file left there locks everybody out.
TEST_F(Conf, AFailingRenameRemovesTheTemporaryFile)
{
    const string path = write_file("/tmp/inside.conf", "a=1\n");
    refused(0, path, -3, "");
    EXPECT_FALSE(exists(kWritten));
    refused('=', path, -1, "");
    EXPECT_EQ(read_file(path), "a=1\n");
    refused(0, "/etc", -3, ""); // a folder opens but cannot be read
    EXPECT_FALSE(exists(kWritten));
    isolated(CLONE_NEWNS, [&] {
        ASSERT_EQ(mount("small", "/etc", "tmpfs", MS_RDONLY, nullptr), 0);
        refused(0, path, -2, "we can't open the file : /etc/temp.conf");
        refused('=', path, -1, "we can't open the file : /etc/temp.conf");
    });
}
