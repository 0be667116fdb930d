// Flash partitions through the calls that programs make.
#include "tests/sim/preload/camera.hpp"

#include <cerrno>
#include <cstring>
#include <mtd/mtd-user.h>
#include <vector>

using namespace vcam;

namespace {

constexpr char kNor[] = "/dev/mtd1", kNand[] = "/dev/mtd2";

class Mtd : public test::CameraTest {
protected:
    static int erase(int fd, uint32_t start, uint32_t length)
    {
        erase_info_user range = {start, length};
        return ::ioctl(fd, MEMERASE, &range) == 0 ? 0 : errno;
    }
    static ssize_t put(int fd, const std::string& bytes) { return ::write(fd, bytes.data(), bytes.size()); }
    static std::string get(int fd, size_t size)
    {
        std::string bytes(size, 0);
        const ssize_t n = ::read(fd, bytes.data(), size);
        return bytes.substr(0, n < 0 ? 0 : size_t(n));
    }
};

TEST_F(Mtd, TellsItsGeometryAsTheKernelsRecord)
{
    struct {
        const char* path;
        mtd_info_user want;
    } const cases[] = {{kNor, {MTD_NORFLASH, MTD_CAP_NORFLASH, 256 << 10, 64 << 10, 1, 0, 0}},
                       {kNand, {MTD_NANDFLASH, MTD_CAP_NANDFLASH, 128 << 10, 16 << 10, 2 << 10, 64, 0}}};
    for (const auto& c : cases) {
        const int fd = ::open(c.path, O_RDONLY);
        ASSERT_GE(fd, 0) << c.path;
        mtd_info_user info{};
        ASSERT_EQ(::ioctl(fd, MEMGETINFO, &info), 0);
        EXPECT_EQ(info.type, c.want.type);
        EXPECT_EQ(info.flags, c.want.flags);
        EXPECT_EQ(info.size, c.want.size);
        EXPECT_EQ(info.erasesize, c.want.erasesize);
        EXPECT_EQ(info.writesize, c.want.writesize);
        ::close(fd);
    }
    EXPECT_EQ(::open("/dev/mtd0", O_RDONLY), -1); // this camera has none
    EXPECT_EQ(errno, ENODEV);
}

// A forgotten erase must not go unseen on NOR flash: the chip refuses to set bits.
TEST_F(Mtd, NorOnlyClearsBitsAndErasingSetsThem)
{
    const int fd = ::open(kNor, O_RDWR | O_CREAT | O_TRUNC, 0666);
    ASSERT_EQ(put(fd, "\xF0\xFF"), 2);
    ::lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(put(fd, "\x30\x7F"), 2); // clears more
    ::lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(put(fd, "\x10\x81\xAA"), -1); // the second byte needs bit 7 set again
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
    EXPECT_EQ(get(fd, 3), "\x10\x01\xFF");
    EXPECT_EQ(erase(fd, 0, 64 << 10), 0);
    EXPECT_EQ(image(1), std::string(256 << 10, '\xFF'));
    ::close(fd);
}

// Pages of 2 KiB are written in quarters at the least.
TEST_F(Mtd, NandTakesWholePartsOfAPageAndAndsThemSilently)
{
    const int fd = ::open(kNand, O_RDWR);
    for (size_t refused : {100u, 256u, 612u}) {
        EXPECT_EQ(put(fd, std::string(refused, 'a')), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(::pwrite(fd, std::string(512, 'a').data(), 512, 256), -1);
    EXPECT_EQ(put(fd, std::string(1024, '\x0F')), 1024);
    ::lseek(fd, 512, SEEK_SET);
    EXPECT_EQ(put(fd, std::string(512, '\x3C')), 512);
    EXPECT_EQ(image(2).substr(0, 1025), std::string(512, '\x0F') + std::string(512, '\x0C') + "\xFF");
    ::close(fd);
}

// The kernel keeps a bad block from being erased; a write to it is the chip's own business.
TEST_F(Mtd, ABadBlockIsNotErasedAndEndsAnEraseThatReachesIt)
{
    write_file(folder / "flash/mtd2.bad", "3\n");
    const int fd = ::open(kNand, O_RDWR);
    constexpr uint32_t kBlock = 16 << 10;
    loff_t good = 2 * kBlock, bad = 3 * kBlock, last = 7 * kBlock, end = 8 * kBlock;
    EXPECT_EQ(::ioctl(fd, MEMGETBADBLOCK, &good), 0);
    EXPECT_EQ(::ioctl(fd, MEMGETBADBLOCK, &bad), 1);
    EXPECT_EQ(::ioctl(fd, MEMGETBADBLOCK, &end), -1);
    EXPECT_EQ(errno, EINVAL);
    const std::string page(512, 'a');
    for (loff_t at : {good, bad, bad + kBlock}) EXPECT_EQ(::pwrite(fd, page.data(), 512, at), 512);
    EXPECT_EQ(erase(fd, uint32_t(good), 3 * kBlock), EIO);
    const std::string now = image(2);
    EXPECT_EQ(now.substr(size_t(good), 512), std::string(512, '\xFF'));
    EXPECT_EQ(now.substr(size_t(bad), 512), page);
    EXPECT_EQ(now.substr(size_t(bad) + kBlock, 512), page);
    EXPECT_EQ(::ioctl(fd, MEMSETBADBLOCK, &last), 0);
    EXPECT_EQ(::ioctl(fd, MEMGETBADBLOCK, &last), 1);
    EXPECT_EQ(read_file(folder / "flash/mtd2.bad"), "3\n7\n");
    ::close(fd);
}

TEST_F(Mtd, RefusesWhatTheDriverRefuses)
{
    const int fd = ::open(kNor, O_RDWR), reader = ::open(kNor, O_RDONLY);
    for (auto [start, length] : std::vector<std::pair<uint32_t, uint32_t>>{
             {1, 64 << 10}, {0, 4096}, {256 << 10, 64 << 10}, {192 << 10, 128 << 10}, {0, 0xFFFF0000}})
        EXPECT_EQ(erase(fd, start, length), EINVAL) << start << "+" << length;
    EXPECT_EQ(erase(reader, 0, 64 << 10), EPERM);
    EXPECT_EQ(put(reader, "x"), -1);
    EXPECT_EQ(errno, EBADF);
    loff_t zero = 0;
    EXPECT_EQ(::ioctl(fd, MEMGETBADBLOCK, &zero), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(::lseek(fd, (256 << 10) + 1, SEEK_SET), -1);
    EXPECT_EQ(::lseek(fd, -2, SEEK_END), (256 << 10) - 2);
    EXPECT_EQ(put(fd, "abc"), 2); // up to the partition's end
    for (const char* more : {"c", ""}) {
        EXPECT_EQ(put(fd, more), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(get(fd, 10), "");
    ::close(fd);
    ::close(reader);
}

// One plan line a row: what the caller sees, and what the flash holds then.
TEST_F(Mtd, FaultsComeWhenThePlanSaysAndLeaveWhatItSays)
{
    ASSERT_EQ(vcamsim_fault("mtd1 write 1 1 EIO"), 0);
    ASSERT_EQ(vcamsim_fault("mtd1 write 1 1 short  # the one after it"), 0);
    ASSERT_EQ(vcamsim_fault("mtd1 read 1 1 flip"), 0);
    ASSERT_EQ(vcamsim_fault("mtd1 erase@2 0 -1 EIO"), 0);
    const int fd = ::open(kNor, O_RDWR);
    EXPECT_EQ(put(fd, "aaaa"), 4);
    EXPECT_EQ(put(fd, "bbbb"), -1); // both lines are due; the first one counts
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(put(fd, "cccc"), 4);
    ::lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(get(fd, 4), "aaaa");
    EXPECT_EQ(get(fd, 4), std::string("cc") + char('c' ^ 0x10) + "c");
    EXPECT_EQ(erase(fd, 128 << 10, 64 << 10), EIO);
    EXPECT_EQ(erase(fd, 128 << 10, 64 << 10), EIO);
    EXPECT_EQ(erase(fd, 64 << 10, 64 << 10), 0);
    vcamsim_clear_faults();
    ASSERT_EQ(vcamsim_fault("mtd1 write 0 1 short"), 0);
    EXPECT_EQ(put(fd, "dddd"), 2);
    ASSERT_EQ(vcamsim_fault("mtd1 write 0 1 flip"), 0);
    EXPECT_EQ(put(fd, "dddd"), 4); // nobody notices before reading back
    EXPECT_EQ(image(1).substr(8, 6), "dddd`d");
    EXPECT_EQ(vcamsim_count("mtd1", "write"), 5); // refused ones included
    ASSERT_EQ(vcamsim_fault("mtd1 write 0 1 drop"), 0);
    EXPECT_EQ(put(fd, "eeee"), 4);
    EXPECT_EQ(image(1).substr(8, 10), "dddd`d" + std::string(4, '\xFF'));
    ASSERT_EQ(vcamsim_fault("mtd1 erase 0 1 slow=800"), 0);
    const double before = seconds();
    EXPECT_EQ(erase(fd, 0, 64 << 10), 0);
    EXPECT_GE(seconds() - before, 0.8);
    EXPECT_EQ(image(1)[0], '\xFF');
    ::close(fd);
    for (const char* nonsense :
         {"mtd1 write 1 EIO extra words", "mtd1 write x 1 EIO", "mtd1 write 0 1 EWHAT", "mtd1 erase@ 0 1 EIO",
          "mtd9 write 0 1 EIO", "mtd1 wirte 0 1 EIO", "umount /etc 0 1 EIO", "umount 0 1 flip",
          "mtd1 open 0 1 drop", "ai read 0 1 EIO", "mtd1 write 0 1 slow=0"})
        EXPECT_EQ(vcamsim_fault(nonsense), -1) << nonsense;
}

TEST_F(Mtd, APowerCutEndsBeforeInsideOrAfterTheOperation)
{
    struct {
        const char* line;
        std::string written;
    } const cases[] = {{"mtd1 write 1 1 powercut-before", "aaaa\xFF\xFF\xFF\xFF"},
                       {"mtd1 write 1 1 powercut", "aaaabb\xFF\xFF"},
                       {"mtd1 write 1 1 powercut-after", "aaaabbbb"}};
    for (const auto& c : cases) {
        vcamsim_clear_faults();
        ASSERT_EQ(vcamsim_start(folder.path().c_str(), 0), 0);
        ASSERT_EQ(vcamsim_fault(c.line), 0);
        const int fd = ::open(kNor, O_RDWR);
        ASSERT_EQ(erase(fd, 0, 64 << 10), 0);
        EXPECT_EQ(put(fd, "aaaa"), 4);
        EXPECT_EQ(put(fd, "bbbb"), -1);
        EXPECT_FALSE(vcamsim_has_power());
        EXPECT_EQ(put(fd, "cccc"), -1); // nothing works in the dark
        EXPECT_EQ(image(1).substr(0, 8), c.written) << c.line;
        ::close(fd);
    }
    EXPECT_NE(journal().find("power cut"), std::string::npos);
}

TEST_F(Mtd, APowerCutInsideAnEraseLeavesAHalfErasedBlock)
{
    write_file(folder / "flash/mtd1", std::string(256 << 10, '\0'));
    ASSERT_EQ(vcamsim_fault("mtd1 erase 0 1 powercut"), 0);
    const int fd = ::open(kNor, O_RDWR);
    EXPECT_NE(erase(fd, 64 << 10, 64 << 10), 0);
    EXPECT_EQ(image(1),
              std::string(64 << 10, '\0') + std::string(32 << 10, '\xFF') + std::string(160 << 10, '\0'));
    ::close(fd);
}

// The journal tells a stretch of flash once, not every call.
TEST_F(Mtd, JournalHasOneLineAStretch)
{
    const int fd = ::open(kNor, O_RDWR);
    for (uint32_t block = 0; block < 4; ++block) ASSERT_EQ(erase(fd, block * (64 << 10), 64 << 10), 0);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(put(fd, std::string(512, 'x')), 512);
    ::close(fd);
    const std::string text = journal();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    EXPECT_NE(text.find(" mtd mtd1 erase 0x0-0x40000\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" mtd mtd1 write 0x0-0x1400\n"), std::string::npos) << text;
}

} // namespace
