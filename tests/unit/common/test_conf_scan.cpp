#include "common/conf/conf_scan.hpp"
#include "tests/support/temp_folder.hpp"

#include <cstddef>
#include <gtest/gtest.h>

namespace {

using namespace zep;

struct Record {
    char alias2[8];
    char alias[8];
    int32_t level;
    char input[8];
};

constexpr ConfKey text(const char* name, size_t offset, const char* section = nullptr)
{
    return {
        .name = name, .store = conf_store_text, .offset = uint32_t(offset), .size = 8, .section = section};
}

constexpr ConfKey kKeys[] = {
    text("cam_alias_2", offsetof(Record, alias2)),
    text("cam_alias", offsetof(Record, alias)),
    {.name = "level",
     .store = conf_store_int32,
     .offset = offsetof(Record, level),
     .size = 4,
     .min = -5,
     .max = 9},
    text("mode", offsetof(Record, input), "INPUT"),
};
static_assert(conf_keys_reachable(kKeys));
constexpr ConfKey kShorterFirst[] = {kKeys[1], kKeys[0]};
static_assert(!conf_keys_reachable(kShorterFirst));
constexpr ConfKey kSections[] = {text("mode", 0, "INPUT"), text("mode", 0, "FTP"), text("mode", 0)};
static_assert(conf_keys_reachable(kSections));

struct ConfScan : testing::Test {
    TempFolder folder;
    Record record = {"two", "one", 1, "in"};

    int scan(const std::string& content)
    {
        return conf_scan({"test_info", kKeys}, folder.write("a.conf", content).c_str(), &record);
    }
};

} // namespace

TEST_F(ConfScan, EveryKeyOfTheTableFillsItsFieldAndTheScanGoesOnAlongTheLine)
{
    EXPECT_EQ(scan("cam_alias_2=hall\n cam_alias = \"door\" \nlevel=3\nother=1=level=7\n"), 1);
    EXPECT_STREQ(record.alias2, "hall");
    EXPECT_STREQ(record.alias, "door");
    EXPECT_EQ(record.level, 7);
}

TEST_F(ConfScan, EmptyUnfitAndCommentedValuesLeaveTheField)
{
    EXPECT_EQ(
        scan("cam_alias=\nlevel=10\nlevel=-6\nlevel=3x\nlevel=\n#level=2\n[level]\nlevel=#2\n\ncam_alias"),
        1);
    EXPECT_STREQ(record.alias, "one");
    EXPECT_EQ(record.level, 1);
    EXPECT_EQ(scan("cam_alias=toolongname\nlevel=-5\n"), 1);
    EXPECT_STREQ(record.alias, "toolong");
    EXPECT_EQ(record.level, -5);
}

TEST_F(ConfScan, AKeyOfASectionCountsBelowItsHeaderOnly)
{
    EXPECT_EQ(scan("mode=a\n[FTP]\nmode=b\n"), 1);
    EXPECT_STREQ(record.input, "in");
    EXPECT_EQ(scan("[INPUT]\nmode=c\n[FTP]\nmode=b\nlevel=2\n"), 1);
    EXPECT_STREQ(record.input, "c");
    EXPECT_EQ(record.level, 2);
}

TEST_F(ConfScan, LinesAreSeenInPiecesOf255Characters)
{
    EXPECT_EQ(scan("x" + std::string(254, 'y') + "level=5\n" + std::string(10000, '=')), 1);
    EXPECT_EQ(record.level, 5);
}

TEST_F(ConfScan, AFileThatCannotBeOpenedLeavesTheRecord)
{
    EXPECT_EQ(conf_scan({"test_info", kKeys}, (folder / "none").c_str(), &record), 0);
    EXPECT_STREQ(record.alias, "one");
}
