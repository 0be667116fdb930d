// Erase, write and compare on the virtual camera's flash partitions.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Flash : public testing::Test {
protected:
    explicit Flash(const Lines& options = {}) : camera(options)
    {
        for (int i = 0; i < 3000; ++i) file += char(i * 31 >> 2);
        write_file(camera.root("/tmp/file"), file);
    }

    Outcome call(const Lines& words)
    {
        Lines line = {"/run/bin/camera_helper", "flash"};
        line.insert(line.end(), words.begin(), words.end());
        return camera.run(line, {"--bind", HELPER});
    }

    static Lines logged(const Outcome& run)
    {
        Lines lines;
        for (const std::string& line : run.log) lines.push_back(line.substr(line.find(": ") + 2));
        return lines;
    }

    Camera camera;
    std::string file;
};

class NandFlash : public Flash {
protected:
    NandFlash() : Flash({"--flash", "nand", "--size", "mtd1=64K", "--bad", "mtd1:1"}) {}
};

} // namespace

TEST_F(Flash, EraseReportsSingleBlocksAndErasesTheOthers)
{
    camera.faults("mtd1 erase@3 0 1 EIO\n");
    std::string before = camera.flash(1);
    Outcome run = call({"erase", "/dev/mtd1"});
    EXPECT_EQ(run.out, "= 0\n");
    EXPECT_EQ(run.err, "\n/dev/mtd1: MTD Erase failure: Input/output error\n");
    EXPECT_THAT(logged(run), ElementsAre("[CFlash_Erase] =================> [/dev/mtd1]\\n",
                                         "    [CFlash_Erase] MTD Erase failure [/dev/mtd1]\\n"));
    std::string expected(before.size(), '\xFF');
    EXPECT_TRUE(camera.flash(1) == expected.replace(3 << 16, 1 << 16, before, 3 << 16, 1 << 16));
}

TEST_F(Flash, EraseNeedsAFlashDevice)
{
    Outcome run = call({"erase", "/dev/nothing"});
    EXPECT_EQ(run.out, "= -1\n");
    EXPECT_EQ(run.err, "/dev/nothing: No such file or directory\n");
    EXPECT_THAT(logged(run), ElementsAre("[CFlash_Erase] =================> [/dev/nothing]\\n",
                                         "    [CFlash_Erase] open [/dev/nothing]\\n"));
    run = call({"erase", "/dev/null"});
    EXPECT_EQ(run.out, "= -1\n");
    EXPECT_EQ(run.err, "/dev/null: unable to get MTD device info\n");
    EXPECT_EQ(logged(run).back(), "    [CFlash_Erase] unable to get MTD device info [/dev/null]\\n");
}

TEST_F(Flash, WritesAStretchAndFindsEveryDifference)
{
    ASSERT_EQ(call({"erase", "/dev/mtd1"}).out, "= 0\n");
    Outcome run = call({"write", "/tmp/file", "/dev/mtd1", "100", "1500"});
    EXPECT_EQ(run.out, "= 0\n");
    EXPECT_THAT(logged(run), ElementsAre("[CFlash_NWrite] offset : 100, size : 1500"));
    EXPECT_EQ(camera.flash(1).substr(0, 1500), file.substr(100, 1500));
    EXPECT_EQ(camera.flash(1).find_first_not_of('\xFF', 1500), std::string::npos);

    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "100", "1500"}).out, "= 0\n");
    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "101", "1500"}).out,
              "[CFlash_Confirm] cmp error : /dev/mtd1 : Input/output error\n= -1\n");
    camera.faults("mtd1 read 2 1 flip\n");
    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "100", "1500"}).out,
              "[CFlash_Confirm] cmp error : /dev/mtd1 : Input/output error\n= -1\n");
}

// The file's checks are there for what is missing; here it ends the pass.
TEST_F(Flash, AFileThatEndsEarlyEndsThePassWell)
{
    ASSERT_EQ(call({"erase", "/dev/mtd1"}).out, "= 0\n");
    EXPECT_EQ(call({"write", "/tmp/file", "/dev/mtd1", "2000", "4000000"}).out, "= 0\n");
    EXPECT_EQ(camera.flash(1).substr(0, 1001), file.substr(2000) + "\xFF");
    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "2000", "4000000000"}).out, "= 0\n");
    EXPECT_EQ(call({"write", "/tmp/file", "/dev/mtd1", "5000", "100"}).out, "= 0\n");
    EXPECT_EQ(call({"write", "/tmp/file", "/dev/mtd1", "0", "0"}).out, "= 0\n");
}

TEST_F(Flash, EachFailureNamesItsStepOnTheConsoleAndInTheLog)
{
    const struct {
        Lines call;
        const char* faults;
        std::string message;
    } cases[] = {
        {{"write", "/nofile", "/dev/mtd1", "0", "9"},
         "",
         "[CFlash_NWrite] fseek : /nofile : No such file or directory"},
        {{"write", "/tmp/file", "/dev/mtd1", "-1", "9"},
         "",
         "[CFlash_NWrite] fseek : /tmp/file : Invalid argument"},
        {{"write", "/tmp/file", "/no/dev", "0", "9"},
         "",
         "[CFlash_NWrite] open : /no/dev : No such file or directory"},
        {{"write", "/tmp", "/dev/mtd1", "0", "9"}, "", "[CFlash_NWrite] fread : /tmp : Is a directory"},
        {{"write", "/tmp/file", "/dev/mtd1", "0", "999"},
         "mtd1 write 1 1 EIO\n",
         "[CFlash_NWrite] full_write : /dev/mtd1 : Input/output error"},
        {{"write", "/tmp/file", "/dev/full", "0", "9"},
         "",
         "[CFlash_NWrite] full_write : /dev/full : No space left on device"},
        {{"confirm", "/tmp/file", "/dev/null", "0", "9"},
         "",
         "[CFlash_Confirm] full_write : /dev/null : Input/output error"},
        {{"confirm", "/tmp/file", "/no/dev", "0", "9"},
         "",
         "[CFlash_Confirm] open : /no/dev : No such file or directory"},
        {{"confirm", "/tmp/file", "/dev/mtd1", "0", "999"},
         "mtd1 read 0 1 EIO\n",
         "[CFlash_Confirm] full_write : /dev/mtd1 : Input/output error"},
    };
    for (auto& c : cases) {
        ASSERT_EQ(call({"erase", "/dev/mtd1"}).out, "= 0\n");
        camera.faults(c.faults);
        Outcome run = call(c.call);
        EXPECT_EQ(run.out, c.message + "\n= -1\n");
        EXPECT_EQ(logged(run).back(), c.message);
    }
    EXPECT_EQ(call({"write", "null", "/dev/mtd1", "0", "9"}).log.size(), 0u);
    EXPECT_EQ(call({"confirm", "/tmp/file", "null", "0", "9"}).out, "= -1\n");
}

// Short writes are repeated until the chunk is out.
TEST_F(Flash, ShortTransfersAreCompleted)
{
    ASSERT_EQ(call({"erase", "/dev/mtd1"}).out, "= 0\n");
    camera.faults("mtd1 write 0 5 short\nmtd1 read 0 5 short\n");
    EXPECT_EQ(call({"write", "/tmp/file", "/dev/mtd1", "0", "3000"}).out, "= 0\n");
    EXPECT_EQ(camera.flash(1).substr(0, 3000), file);
    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "0", "3000"}).out, "= 0\n");
}

// NOR flash has no bad blocks to ask for: the question is put once, and the erase goes on.
TEST_F(Flash, NandEraseOfNorFlashErasesEveryBlock)
{
    Outcome run = call({"nand_erase", "/dev/mtd1"});
    EXPECT_THAT(run.out, HasSubstr("[CFlash_Nand_Erase] =================> [/dev/mtd1]\n"
                                   "\rErasing 64 Kibyte @ 0 --  0 % complete."
                                   "\rErasing 64 Kibyte @ 10000 --  2 % complete."));
    EXPECT_THAT(run.out, HasSubstr("\rErasing 64 Kibyte @ 2f0000 -- 97 % complete.\n= 0\n"));
    EXPECT_EQ(camera.flash(1).find_first_not_of('\xFF'), std::string::npos);
}

TEST_F(NandFlash, BadBlocksAreSkipped)
{
    Outcome run = call({"nand_erase", "/dev/mtd1"});
    EXPECT_EQ(run.out, "[CFlash_Nand_Erase] =================> [/dev/mtd1]\n"
                       "\rErasing 16 Kibyte @ 0 --  0 % complete."
                       "\nSkipping bad block at 0x00004000\n"
                       "\rErasing 16 Kibyte @ 8000 -- 50 % complete."
                       "\rErasing 16 Kibyte @ c000 -- 75 % complete.\n= 0\n");
    EXPECT_EQ(camera.flash(1), std::string(64 << 10, '\xFF'));
}

// The image's last bytes do not fill the chip's smallest write: they are refused, the rest is written.
TEST_F(NandFlash, AnImageThatEndsInsideAPageLacksItsEnd)
{
    ASSERT_EQ(call({"nand_erase", "/dev/mtd1"}).status, 0);
    EXPECT_EQ(call({"write", "/tmp/file", "/dev/mtd1", "0", "1124"}).out,
              "[CFlash_NWrite] full_write : /dev/mtd1 : Invalid argument\n= -1\n");
    EXPECT_EQ(camera.flash(1).substr(0, 1124), file.substr(0, 1024) + std::string(100, '\xFF'));
    EXPECT_EQ(call({"confirm", "/tmp/file", "/dev/mtd1", "0", "1124"}).out,
              "[CFlash_Confirm] cmp error : /dev/mtd1 : Input/output error\n= -1\n");
}

TEST_F(NandFlash, AFailingBadBlockQuestionEndsTheProcess)
{
    camera.faults("mtd1 badblock 0 1 EIO\n");
    Outcome run = call({"nand_erase", "/dev/mtd1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out,
                HasSubstr("\nCFlash_Nand_Erase: /dev/mtd1: MTD get bad block failed: Input/output error\n"));
    camera.faults("mtd1 badblock 0 1 EOPNOTSUPP\n");
    run = call({"nand_erase", "/dev/mtd1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("CFlash_Nand_Erase: /dev/mtd1: Bad block check not available\n"));
}

TEST_F(NandFlash, ABlockThatDoesNotEraseIsToldAndPassedOver)
{
    camera.faults("mtd1 erase@2 0 1 EIO\n");
    Outcome run = call({"nand_erase", "/dev/mtd1"});
    EXPECT_THAT(
        run.out,
        HasSubstr("\nCFlash_Nand_Erase: /dev/mtd1: MTD Erase failure: Input/output error\n\rErasing"));
    EXPECT_THAT(run.out, HasSubstr("\n= 0\n"));
}
