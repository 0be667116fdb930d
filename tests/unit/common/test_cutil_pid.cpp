// Process-id files.
#include "common/cutil_pid.h"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

TEST(PidFile, HoldsTheCallersIdAndTheSetUserIdBitAndWhatIsNoNumberIsMinusOne)
{
    TempFolder folder;
    const std::string path = folder / "pid";
    mode_t mask = umask(022);
    EXPECT_EQ(CUTIL_WritePidFile(path.c_str()), 1);
    umask(mask);
    EXPECT_EQ(folder.read("pid"), std::to_string(getpid()) + "\n");
    EXPECT_EQ(CUTIL_ReadPidFile(path.c_str()), getpid());
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 04644u);
    EXPECT_EQ(CUTIL_WritePidFile((folder / "none/pid").c_str()), 0);
    EXPECT_EQ(CUTIL_WritePidFile("/dev/full"), 0) << "made but not written";
    EXPECT_EQ(CUTIL_ReadPidFile((folder / "none").c_str()), -1);
    const struct {
        const char* text;
        int32_t pid;
    } cases[] = {{"12\n", 12}, {" \n 34x", 34},           {"-7", -7}, {"", -1}, {"x12", -1},
                 {"-", -1},    {"99999999999", INT32_MAX}};
    for (const auto& c : cases)
        EXPECT_EQ(CUTIL_ReadPidFile(folder.write("pid", c.text).c_str()), c.pid) << c.text;
}
