// The writer with a temporary file of the caller's choice, and the replacement behind all writers.
#include "common/cutil_conf.h"
#include "common/base/replacement.hpp"
#include "tests/support/temp_folder.hpp"
#include "tests/support/run.hpp"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using std::string;

string after_set(const string& before, const string& key, const string& value)
{
    TempFolder folder;
    string path = folder.write("a.conf", before);
    EXPECT_EQ(CUTIL_SetFileValue(path.c_str(), (folder / "tmp").c_str(), key.c_str(), value.c_str()), 0);
    EXPECT_EQ(folder.entries(), 1u) << "the temporary file became the file";
    return folder.read("a.conf");
}

} // namespace

TEST(SetFileValue, EveryLineThatBeginsWithTheKeyIsReplacedTheOthersStayByteForByte)
{
    EXPECT_EQ(after_set("a=1\nIP=2\nb = 3 \r\nIPADDR=4\n", "IP", "9"), "a=1\nIP=9\nb = 3 \r\nIP=9\n");
    EXPECT_EQ(after_set(" IP=2\n#IP=3\n", "IP", "9"), " IP=2\n#IP=3\nIP=9\n");
    EXPECT_EQ(after_set("", "k", ""), "k=\n");
    EXPECT_EQ(after_set("a=1", "k", "v"), "a=1\nk=v\n") << "the open last line is ended first";
    EXPECT_EQ(after_set("k=1", "k", "v"), "k=v\n");
    string binary("x\0y\n\0\xff\n", 7);
    EXPECT_EQ(after_set(binary, "k", "v"), binary + "k=v\n");
}

TEST(SetFileValue, ALineLongerThanItsBufferIsSeenInPieces)
{
    string whole(262142, 'x');
    EXPECT_EQ(after_set(whole + "\nk=1\n", "k", "v"), whole + "\nk=v\n");
    string piece(262143, 'x');
    EXPECT_EQ(after_set(piece + "k=1\nb=2\n", "k", "v"), piece + "k=v\nb=2\n");
    EXPECT_EQ(after_set("k" + string(300000, 'y') + "\n", "k", "v"),
              "k=v\n" + string(300001 - 262143, 'y') + "\n");
}

TEST(SetFileValue, ModeAndOwnerOfTheOldFileStay)
{
    TempFolder folder;
    string path = folder.write("a.conf", "a=1\n");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    folder.write("tmp", "left by a crash");
    ASSERT_EQ(CUTIL_SetFileValue(path.c_str(), (folder / "tmp").c_str(), "a", "2"), 0);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    // Root may give the file away, with the set-id bits that a change of owner drops.
    if (chown(path.c_str(), 12, 34) == 0 && chmod(path.c_str(), 06751) == 0) {
        ASSERT_EQ(CUTIL_SetFileValue(path.c_str(), (folder / "tmp").c_str(), "a", "2"), 0);
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, 12u);
        EXPECT_EQ(info.st_gid, 34u);
        EXPECT_EQ(info.st_mode & 07777, 06751u);
    }
    EXPECT_EQ(folder.read("a.conf"), "a=2\n");
}

TEST(SetFileValue, RefusalsNameTheFileAndLeaveNothingBehind)
{
    TempFolder folder;
    string path = folder.write("a.conf", "a=1\n"), temp = folder / "tmp", none = folder / "none";
    auto refused = [&](const string& file, const string& temporary, const string& named) {
        EXPECT_EQ(
            printed([&] { EXPECT_EQ(CUTIL_SetFileValue(file.c_str(), temporary.c_str(), "a", "2"), -1); }),
            "[CUTIL_SetFileValue] we can't open the file : " + named + "\n");
    };
    refused(none, temp, none);
    refused(path, folder / "none/tmp", folder / "none/tmp");
    refused(path, path, path);
    refused(path, "/dev/null", "/dev/null");
    EXPECT_EQ(CUTIL_SetFileValue((folder / "").c_str(), temp.c_str(), "a", "2"), -1) << "a folder";
    EXPECT_EQ(CUTIL_SetFileValue(path.c_str(), temp.c_str(), "a\nb", "2"), -1);
    EXPECT_EQ(CUTIL_SetFileValue(path.c_str(), temp.c_str(), "a", "2\nb=3"), -1);
    EXPECT_EQ(CUTIL_SetFileValue(path.c_str(), temp.c_str(), nullptr, "2"), -1);
    EXPECT_EQ(folder.read("a.conf"), "a=1\n");
    EXPECT_EQ(folder.entries(), 1u);
}

// The storage takes 8 KiB and no more, as a nearly full file system does.
TEST(SetFileValue, AWriteThatFailsLeavesTheOldFileWholeAndNoTemporaryFile)
{
    TempFolder folder;
    string content = "a=1\n" + string(20000, 'x') + "\n";
    string path = folder.write("a.conf", content);
    struct rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    auto handler = signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = {8192, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int result = CUTIL_SetFileValue(path.c_str(), (folder / "tmp").c_str(), "a", "2");
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(folder.read("a.conf"), content);
    EXPECT_EQ(folder.entries(), 1u);
}

TEST(Replacement, ATemporaryFileThatAnotherWriterReplacedIsNeitherRenamedNorRemoved)
{
    TempFolder folder;
    string path = folder.write("a.conf", "a=1\n"), temp = folder / "tmp";
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
