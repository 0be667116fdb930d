// Package header and sizes against what a device expects.
#include "tests/support/package_file.hpp"

#include <gmock/gmock.h>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace zep;

namespace {

class PackageCheck : public UpgradeTest {
protected:
    // The whole check, as an upgrade makes it.
    Finding check(const Bytes& content, bool marker = true)
    {
        logged.clear();
        MemoryFile file(content);
        if (Finding f = check_header(file.fd(), device, marker, header)) return f;
        if (Finding f = check_sizes(header, int64_t(content.size()))) return f;
        return check_contents(file.fd(), header);
    }

    Expected device{marker_word("3510"), 1, ""};
    PackageHeader header;
    Bytes kernel = Kernel{}.image();
};

constexpr char kMarkerLine[] = "CHECK MAGIC_NUMBER : 30313533 vs 30313533\n";

} // namespace

TEST_F(PackageCheck, AcceptsBothVersionsAndFindsTheirImages)
{
    EXPECT_EQ(check(package(1, kernel, "rootfs", jffs2(2))).flaw, Flaw::none);
    EXPECT_THAT(logged, ElementsAre(kMarkerLine, "CHECK VERSION : 1 vs 1\n"));
    EXPECT_EQ(header.offset(0), 20);
    EXPECT_EQ(header.offset(1), int64_t(20 + kernel.size()));
    EXPECT_EQ(header.offset(2), int64_t(26 + kernel.size()));

    device.version = 3;
    EXPECT_EQ(check(package(3, kernel, "rootfs", "no look is taken at this")).flaw, Flaw::none);
    EXPECT_EQ(header.offset(0), 64);
    EXPECT_THAT(header.size, ElementsAre(kernel.size(), 6, 24));
}

TEST_F(PackageCheck, ComparesTheMarkerFirstAndOnlyWhenAsked)
{
    Bytes other = package_header(3, 1, 2, 3, "ABCD");
    EXPECT_EQ(check(other).flaw, Flaw::marker);
    EXPECT_THAT(logged, ElementsAre("CHECK MAGIC_NUMBER : 44434241 vs 30313533\n",
                                    "MAGIC_NUMBER is not match 1 : 44434241 vs 30313533\n"));
    EXPECT_EQ(check(other, false).flaw, Flaw::version);
    EXPECT_THAT(logged, ElementsAre("CHECK VERSION : 3 vs 1\n", "VERSION is not match 1 : 3 vs 1\n"));
}

TEST_F(PackageCheck, AMarkerIsItsFirstFourCharacters)
{
    EXPECT_EQ(marker_word("3510XYZ"), marker_word("3510"));
    EXPECT_EQ(marker_word("ab"), 0x00006261u);
    EXPECT_EQ(marker_word(""), 0u);
    EXPECT_EQ(marker_word("\xE3\xFF\x80\x7F"), 0x7F80FFE3u);
}

TEST_F(PackageCheck, UnknownVersionsFailEvenWhenTheDeviceExpectsThem)
{
    for (int version : {2, 0, 4, -1}) {
        device.version = version;
        EXPECT_EQ(check(package_header(version, 0, 0, 0)).flaw, Flaw::layout) << version;
        EXPECT_EQ(logged.size(), 2u);
    }
}

TEST_F(PackageCheck, EveryCutOfTheHeaderFails)
{
    for (int version : {1, 3}) {
        device.version = version;
        Bytes whole = package_header(version, 0, 0, 0);
        for (size_t n = 0; n < whole.size(); ++n) {
            EXPECT_EQ(check(whole.substr(0, n)).flaw, Flaw::header) << n;
            EXPECT_EQ(logged.size(), n < 8 ? 0u : 2u);
        }
    }
}

// In 32 bits the sizes of the third and fourth add up to the length of the file, and two partitions would be erased for
// images that are not there.
TEST_F(PackageCheck, EachFlawOfSizesAndImagesHasItsMessagesAndItsPlace)
{
    const auto size = uint32_t(kernel.size());
    const Bytes good = package(1, kernel, "rootfs", jffs2(1));
    Bytes broken = jffs2(2);
    broken[65536] = 0;
    auto sizes = [](size_t expected, size_t found) {
        return "Firmware image size : " + std::to_string(expected) + " vs " + std::to_string(found) + "\n";
    };
    const struct {
        Bytes content;
        Flaw flaw;
        std::vector<std::string> messages;
        int64_t offset = -1, found = 0, expected = 0; // -1: not looked at
    } cases[] = {
        {good + "x", Flaw::sizes, {sizes(good.size(), good.size() + 1)}},
        {good.substr(0, good.size() - 1), Flaw::sizes, {sizes(good.size(), good.size() - 1)}},
        {package_header(1, size, 0x80000000, 0x80000000) + kernel,
         Flaw::sizes,
         {sizes(size + 20, size + 20)}},
        {package_header(1, size, 0xFFFFFFFF, 1) + kernel, Flaw::sizes, {sizes(size + 20, size + 20)}},
        {package(1, Kernel{.data_crc_error = 1}.image(), "r", jffs2(1)),
         Flaw::data_crc,
         {"[CFlash_CheckImage] filencrc32 error\n", "flash1 is not correct\n"}},
        {package(1, Kernel{.architecture = 8}.image(), "r", ""),
         Flaw::architecture,
         {"[CFlash_CheckImage] Unsupported Architecture\n", "flash1 is not correct\n"},
         20 + 29,
         8,
         2},
        {package(1, "short", "r", jffs2(1)),
         Flaw::image_magic,
         {"[CFlash_CheckImage] Bad Magic Number : 1936224114\n", "flash1 is not correct\n"}},
        {package(1, kernel, "r", Bytes(20, 'x')), Flaw::jffs2, {"flash2 is not correct\n"}},
        {package(1, kernel, "r", broken),
         Flaw::jffs2,
         {"flash2 is not correct\n"},
         20 + size + 1 + 65536,
         0x1900,
         0x1985},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.messages));
        const Finding f = check(c.content);
        EXPECT_EQ(f.flaw, c.flaw);
        std::vector<std::string> lines = {kMarkerLine, "CHECK VERSION : 1 vs 1\n"};
        lines.insert(lines.end(), c.messages.begin(), c.messages.end());
        EXPECT_THAT(logged, testing::ElementsAreArray(lines));
        if (c.offset < 0) continue;
        EXPECT_EQ(f.offset, c.offset);
        EXPECT_EQ(f.found, c.found);
        EXPECT_EQ(f.expected, c.expected);
    }
}

// The kernel's data may reach past its own size: its CRC counts, whatever image the bytes are in.
TEST_F(PackageCheck, KernelDataMayRunIntoTheNextImage)
{
    EXPECT_EQ(check(package(1, kernel.substr(0, 100), kernel.substr(100), "")).flaw, Flaw::none);
}

// A changed byte may hit what no check covers, but never anything that makes a check hang or read
// out of bounds.
TEST_F(PackageCheck, MutatedPackagesAreAcceptedOnlyWithTheirSizesIntact)
{
    Bytes good = package(1, kernel, "root file system", jffs2(1));
    std::mt19937 random(3);
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes = good;
        for (unsigned n = random() % 4; n < 4; ++n) bytes[random() % 200] = char(random());
        bool same_sizes = bytes.compare(8, 12, good, 8, 12) == 0;
        bool accepted = !check(bytes);
        EXPECT_TRUE(same_sizes || !accepted) << round;
    }
}
