#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include <gtest/gtest.h>

using namespace zep;

TEST(LineLists, NumbersAndNamesInOrder)
{
    LineList list;
    ASSERT_TRUE(parse_lines("power:9.0,10.7,status:4.1", list));
    ASSERT_EQ(list.count, 3u);
    EXPECT_STREQ(list.lines[0].name, "power");
    EXPECT_EQ(list.lines[1].group, 10);
    EXPECT_EQ(list.lines[1].bit, 7);
    EXPECT_STREQ(list.lines[1].name, "");
    EXPECT_STREQ(list.lines[2].name, "status");
    ASSERT_TRUE(parse_lines("", list));
    EXPECT_EQ(list.count, 0u);
}

TEST(LineLists, RefusesWhatIsNoLine)
{
    LineList list;
    for (const char* text : {"5", "5.", ".1", "5.1,", ",5.1", "0.1", "11.1", "5.8", "-5.1", "5.1 ", "5,1",
                             "005.1", ":5.1", "a_name_of_sixteen:5.1", "a:b:5.1", "5.1,,5.2",
                             "1.0,1.1,1.2,1.3,1.4,1.5,1.6,1.7,2.0,2.1,2.2,2.3,2.4,2.5,2.6,2.7,3.0"})
        EXPECT_FALSE(parse_lines(text, list)) << text;
}

TEST(Options, NumbersMustBeWholeAndInRange)
{
    int64_t value = 7;
    for (const char* text :
         {"", "-", "0x", "1 ", " 1", "1x", "11", "-1", "0xB", "99999999999999999999", "1.0"})
        EXPECT_FALSE(parse_number(text, 0, 10, value)) << text;
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(parse_number("0xa", 0, 10, value));
    EXPECT_EQ(value, 10);
    EXPECT_TRUE(parse_number("-3", -3, 10, value));
    EXPECT_EQ(value, -3);
}

TEST(Options, TakesSwitchesNumbersAndWordsInAnyOrder)
{
    bool verbose = false;
    int64_t times = 1;
    const Option options[] = {{"-v", &verbose}, {"-n", nullptr, &times, 1, 9}};
    const char* words[2] = {"all", "blink"};
    char text[][8] = {"test", "one", "-n", "5", "-v", "two"};
    char* argv[] = {text[0], text[1], text[2], text[3], text[4], text[5]};
    ASSERT_TRUE(parse_options(6, argv, options, words, 2, ""));
    EXPECT_TRUE(verbose);
    EXPECT_EQ(times, 5);
    EXPECT_STREQ(words[1], "two");
    EXPECT_FALSE(parse_options(6, argv, options, words, 1, "")) << "a word too many";
    EXPECT_FALSE(parse_options(3, argv, options, words, 2, "")) << "the number is missing";
}
