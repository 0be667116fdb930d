// The writer with a temporary file of the caller's choice, and the replacement behind all writers.
#include "common/cutil_conf.h"
#include "common/base/replacement.hpp"
#include "tests/support/temp_folder.hpp"
#include "tests/support/run.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using std::string;

struct SetFileValue : testing::Test {
    TempFolder folder;
    string path = folder / "a.conf", temp = folder / "tmp";

    int set(const char* key, const char* value)
    {
        return CUTIL_SetFileValue(path.c_str(), temp.c_str(), key, value);
    }
};

} // namespace

TEST_F(SetFileValue, ReplacesEveryLineThatBeginsWithTheKeyTheOthersStayByteForByte)
{
    const string binary("x\0y\n\0\xff\n", 7);
    const string whole(262142, 'x'), piece(262143, 'x'); // a longer line is seen in pieces
    const struct {
        string before;
        const char *key, *value;
        string after;
    } cases[] = {
        {"a=1\nIP=2\nb = 3 \r\nIPADDR=4\n", "IP", "9", "a=1\nIP=9\nb = 3 \r\nIP=9\n"},
        {" IP=2\n#IP=3\n", "IP", "9", " IP=2\n#IP=3\nIP=9\n"},
        {"a=1", "k", "v", "a=1\nk=v\n"}, // the open last line is ended first
        {binary, "k", "v", binary + "k=v\n"},
        {whole + "\nk=1\n", "k", "v", whole + "\nk=v\n"},
        {piece + "k=1\nb=2\n", "k", "v", piece + "k=v\nb=2\n"},
        {"k" + string(300000, 'y') + "\n", "k", "v", "k=v\n" + string(300001 - 262143, 'y') + "\n"},
    };
    for (const auto& c : cases) {
        folder.write("a.conf", c.before);
        EXPECT_EQ(set(c.key, c.value), 0);
        EXPECT_EQ(folder.read("a.conf"), c.after);
        EXPECT_EQ(folder.entries(), 1u) << "the temporary file became the file";
    }
}

TEST_F(SetFileValue, LeavesModeAndOwner)
{
    folder.write("a.conf", "a=1\n");
    folder.write("tmp", "left by a crash");
    // Root may give the file away, with the set-id bits that a change of owner drops.
    const bool root = chown(path.c_str(), 12, 34) == 0;
    const mode_t mode = root ? 06751 : 0640;
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_EQ(set("a", "2"), 0);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, mode);
    EXPECT_EQ(info.st_uid, root ? 12u : getuid());
    EXPECT_EQ(info.st_gid, root ? 34u : getgid());
    EXPECT_EQ(folder.read("a.conf"), "a=2\n");
}

TEST_F(SetFileValue, RefusalsNameTheFileAndLeaveNothingBehind)
{
    folder.write("a.conf", "a=1\n");
    const string none = folder / "none";
    auto refused = [](const string& file, const string& temporary) {
        return printed([&] { EXPECT_EQ(CUTIL_SetFileValue(file.c_str(), temporary.c_str(), "a", "2"), -1); });
    };
    const string line = "[CUTIL_SetFileValue] we can't open the file : ";
    EXPECT_EQ(refused(none, temp), line + none + "\n");
    for (const string& temporary : {folder / "none/tmp", path, string("/dev/null")})
        EXPECT_EQ(refused(path, temporary), line + temporary + "\n");
    EXPECT_EQ(CUTIL_SetFileValue((folder / "").c_str(), temp.c_str(), "a", "2"), -1) << "a folder";
    for (const auto& [key, value] : {std::pair("a\nb", "2"), std::pair("a", "2\nb=3")})
        EXPECT_EQ(set(key, value), -1);
    EXPECT_EQ(set(nullptr, "2"), -1);
    EXPECT_EQ(folder.read("a.conf"), "a=1\n");
    EXPECT_EQ(folder.entries(), 1u);
}

TEST_F(SetFileValue, ATemporaryFileThatAnotherWriterReplacedIsNeitherRenamedNorRemoved)
{
    folder.write("a.conf", "a=1\n");
    zep::Fd source(open(path.c_str(), O_RDONLY));
    {
        zep::Replacement out;
        ASSERT_TRUE(out.create(temp.c_str(), zep::Replacement::Existing::refuse, source.get()));
        out.put("mine", 4);
        ASSERT_EQ(rename(folder.write("other", "half of so").c_str(), temp.c_str()), 0);
        EXPECT_FALSE(out.commit(path.c_str(), source.get()));
        EXPECT_EQ(errno, ESTALE);
    }
    EXPECT_EQ(folder.read("a.conf"), "a=1\n");
    EXPECT_EQ(folder.read("tmp"), "half of so");
    zep::Replacement second;
    EXPECT_FALSE(second.create(temp.c_str(), zep::Replacement::Existing::refuse, source.get()));
    EXPECT_EQ(errno, EEXIST);
}
