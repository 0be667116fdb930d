// Kernel image and JFFS2 checks: each refusal with its message, in its order.
#include "tests/support/package_file.hpp"

#include "upgrade/cflash.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using zep::Flaw;

namespace {

class ImageCheck : public UpgradeTest {
protected:
    static int check(const Kernel& kernel, const Bytes& before = "", const Bytes& after = "")
    {
        logged.clear();
        MemoryFile file(before + kernel.image() + after);
        return CFlash_CheckImage(file.path().c_str(), int64_t(before.size()));
    }
};

} // namespace

TEST_F(ImageCheck, AcceptsPlainAndGzipImagesOfTheThreeTypesAtAnyOffset)
{
    for (char type : {1, 2, 4})
        for (char compression : {0, 1})
            EXPECT_EQ(check({.type = type, .compression = compression}, Bytes(20, 'h'), "next image"), 0);
    EXPECT_EQ(check({.data = ""}), 0);
    EXPECT_EQ(check({.data = Bytes(100001, 'x')}), 0);
    EXPECT_THAT(logged, IsEmpty());
}

// With several faults only the first in this order is reported: magic, header CRC, data CRC, architecture, type. The
// data's size is what the image claims: up to 4 GiB - 1, of which the file holds a little.
TEST_F(ImageCheck, ReportsTheFirstFaultWithItsOwnMessage)
{
    const struct {
        Kernel kernel;
        const char* message;
    } cases[] = {
        {{.magic = 0x27051957}, "Bad Magic Number : 654645591\n"},
        {{.magic = 0xFFFFFFFE, .header_crc_error = 1}, "Bad Magic Number : -2\n"},
        {{.architecture = 9, .header_crc_error = 1, .data_crc_error = 1}, "crc32 error\n"},
        {{.data_crc_error = 0x80000000}, "filencrc32 error\n"},
        {{.architecture = 9, .type = 9, .compression = 9, .data_crc_error = 1}, "filencrc32 error\n"},
        {{.claimed = 3014}, "filencrc32 error\n"},
        {{.claimed = 0x7FFFFFFF}, "filencrc32 error\n"},
        {{.claimed = 0xFFFFFFFE}, "filencrc32 error\n"},
        {{.architecture = 3, .type = 9, .compression = 9}, "Unsupported Architecture\n"},
        {{.type = 3}, "Wrong Image Type\n"},
        {{.type = 0}, "Wrong Image Type\n"},
        {{.type = 5, .compression = 9}, "Wrong Image Type\n"},
        {{.compression = 2}, "Unimplemented compression type 2\n"},
        {{.compression = char(200)}, "Unimplemented compression type 200\n"},
    };
    for (auto& c : cases) {
        EXPECT_EQ(check(c.kernel), -1) << c.message;
        EXPECT_THAT(logged, ElementsAre(std::string("[CFlash_CheckImage] ") + c.message));
    }
}

TEST_F(ImageCheck, AnyFlippedBitOfTheDataIsFound)
{
    Kernel kernel{.data = Bytes(700, 'd')};
    for (size_t bit = 0; bit < kernel.data.size() * 8; bit += 37) {
        MemoryFile file(kernel.image());
        Bytes flipped(1, char('d' ^ 1 << bit % 8));
        ASSERT_EQ(pwrite(file.fd(), flipped.data(), 1, off_t(64 + bit / 8)), 1);
        EXPECT_EQ(CFlash_CheckImage(file.path().c_str(), 0), -1) << bit;
    }
}

TEST_F(ImageCheck, WithoutAWholeHeaderItFailsWithoutAMessage)
{
    MemoryFile file(Kernel{}.image().substr(0, 63));
    EXPECT_EQ(CFlash_CheckImage(file.path().c_str(), 0), -1);
    EXPECT_EQ(CFlash_CheckImage(file.path().c_str(), 1000), -1);
    EXPECT_EQ(CFlash_CheckImage(file.path().c_str(), -1), -1);
    EXPECT_EQ(CFlash_CheckImage("/nonexistent", 0), -1);
    EXPECT_EQ(CFlash_CheckImage("/", 0), -1);
    EXPECT_THAT(logged, IsEmpty());
}

namespace {

int walk(const Bytes& content, int64_t offset = 0)
{
    MemoryFile file(content);
    return CFlash_CheckJffs2(file.path().c_str(), offset);
}

} // namespace

TEST(Jffs2Walk, LooksAtTheStartOfEveryEraseBlockFromTheOffsetOn)
{
    EXPECT_EQ(walk(jffs2(3)), 0);
    EXPECT_EQ(walk("twenty byte header.." + jffs2(3), 20), 0);
    for (unsigned block : {0, 1, 2})
        for (unsigned byte : {0, 1}) {
            Bytes image = jffs2(3);
            image[block * 65536 + byte] ^= 1;
            EXPECT_EQ(walk(image), -1) << block << " " << byte;
        }
    Bytes elsewhere = jffs2(2);
    elsewhere[2] = elsewhere[65535] = 0;
    EXPECT_EQ(walk(elsewhere), 0);
}

TEST(Jffs2Walk, EndsWellWhereFewerThanTwelveBytesAreLeft)
{
    EXPECT_EQ(walk(jffs2(1) + Bytes(11, 'x')), 0);
    EXPECT_EQ(walk(jffs2(1) + Bytes(12, 'x')), -1);
    EXPECT_EQ(walk(""), 0);
    EXPECT_EQ(walk(jffs2(1), 10'000'000), 0);
    EXPECT_EQ(walk(jffs2(1), -1), 0);
    EXPECT_EQ(CFlash_CheckJffs2("/nonexistent", 0), -1);
}
