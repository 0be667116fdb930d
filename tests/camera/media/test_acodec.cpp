// The codec chip's settings.
#include "tests/camera/media/media.hpp"

#include <array>
#include <fcntl.h>
#include <sys/ioctl.h>

// A record carries one setting; its other bits are the caller's and come back as they were.
TEST(Acodec, TakesTheBitsThatARequestNames)
{
    using Record = std::array<uint8_t, 8>;
    const int fd = open("/dev/acodec", O_RDWR);
    ASSERT_GE(fd, 0);
    const std::pair<unsigned long, Record> rows[] = {
        {0xC0084101, {0xFF, 0xFF, 0xCF, 0xFF, 0, 0, 0, 1}}, // rate group 1
        {0xC0084105, {0xFF, 0, 0, 0, 0xE8, 0, 0, 2}},       // volume 8, bits 5 to 7 set
        {0xC0084108, {0xFF, 0, 0, 0, 0, 0, 0, 3}},
    };
    for (const auto& [request, given] : rows) {
        Record record = given;
        EXPECT_EQ(ioctl(fd, request, record.data()), 0);
        EXPECT_EQ(record, given);
    }
    Record none = {};
    EXPECT_TRUE(ioctl(fd, 0xC0084101, nullptr) == -1 && errno == EFAULT);
    EXPECT_TRUE(ioctl(fd, 0xC0084103, none.data()) == -1 && errno == ENOTTY);
    faults("acodec micl 0 1 EIO\n");
    EXPECT_EQ(ioctl(fd, 0xC0084105, none.data()), -1);
    faults("");
    close(fd);
}
