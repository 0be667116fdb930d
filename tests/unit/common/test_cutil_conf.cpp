// Reading of key=value files: tokens and single settings.
#include "common/cutil_conf.h"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>

namespace {

using std::string;

struct Taken {
    string token;
    string rest; // text at the returned cursor; "(null)" without one
};

Taken take(const string& line)
{
    string token(line.size() + 1, '\0');
    token = "old";
    token.resize(line.size() + 8);
    const char* next = CUTIL_GetConfToken(token.data(), line.c_str());
    return {token.c_str(), next ? next : "(null)"};
}

string value_of(const string& content, const string& key)
{
    TempFolder folder;
    char value[CUTIL_CONF_VALUE_SIZE] = "untouched";
    EXPECT_EQ(CUTIL_GetConfValue(folder.write("a.conf", content).c_str(), key.c_str(), value), 0);
    return value;
}

} // namespace

TEST(ConfToken, EndsAtEqualsOrLineEndTrimsOneBlankAndThenUnquotes)
{
    const struct {
        const char *line, *token, *rest;
    } cases[] = {
        {"key=value\n", "key", "value\n"},
        {" \t key =v", "key", "v"},
        {"key\t=v", "key", "v"},
        {"key  =v", "key ", "v"},
        {"value \r\n", "value", "\r\n"},
        {"a b\tc\n", "a b\tc", "\n"},
        {"=v", "", "v"},
        {"b=c", "b", "c"},
        {"\"abc\"\n", "abc", "\n"},
        {"\"abc\n", "ab", "\n"},
        {"\"ab\" c\n", "ab\" ", "\n"},
        {"\"a=b\"", "", "b\""},
        {"\"", "", ""},
        {"\" \n", "", "\n"},
        {"a#b", "a#b", ""},
        {"\xE3\xFF=1", "\xE3\xFF", "1"},
        {" # note", "old", "# note"},
        {"[INPUT]", "old", "[INPUT]"},
        {"", "old", "(null)"},
        {" \t\n", "old", "(null)"},
        {"\r\n", "old", "(null)"},
    };
    for (const auto& c : cases) {
        Taken taken = take(c.line);
        EXPECT_EQ(taken.token, c.token) << c.line;
        EXPECT_EQ(taken.rest, c.rest) << c.line;
    }
}

TEST(ConfValue, AKeyIsFoundByTheBeginningOfAStoredKeyAndTheFirstMatchWins)
{
    EXPECT_EQ(value_of("a=1\nport=80\nport=81\n", "port"), "80");
    EXPECT_EQ(value_of("port_2=81\nport=80\n", "port"), "81");
    EXPECT_EQ(value_of("por=1\nport=80\n", "port"), "80");
    EXPECT_EQ(value_of("a=1\nb=2\n", ""), "1");
    EXPECT_EQ(value_of("VERSION 3\nVERSION=1\n", "VERSION"), "");
    EXPECT_EQ(value_of("#port=1\n[port]\n\n  port = \"8 0\"\r\n", "port"), "8 0");
    EXPECT_EQ(value_of("port=80", "port"), "80");
    EXPECT_EQ(value_of("url=a=b\n", "url"), "a");
}

TEST(ConfValue, WithoutAMatchTheLastValueReadIsDelivered)
{
    EXPECT_EQ(value_of("a=1\nb=2\n#c=3\n[d]\n\n", "x"), "2");
    EXPECT_EQ(value_of("a=1\nb\n", "x"), "");
    EXPECT_EQ(value_of("", "x"), "");
    EXPECT_EQ(value_of("a=1\nkey= #v\n", "key"), "1") << "the token stays as the line before left it";
    EXPECT_EQ(value_of("a=1\nkey=#v\nb=2\n", "key"), "2") << "the key's own cursor ends the line";
    EXPECT_EQ(value_of("a=1\nkey=\n", "key"), "");
}

TEST(ConfValue, OnlyAFileThatCannotBeOpenedLeavesTheDestinationAlone)
{
    TempFolder folder;
    char value[CUTIL_CONF_VALUE_SIZE] = "old";
    EXPECT_EQ(CUTIL_GetConfValue((folder / "none").c_str(), "a", value), -1);
    EXPECT_STREQ(value, "old");
    EXPECT_EQ(CUTIL_GetConfValue((folder / "").c_str(), "a", value), 0) << "a folder opens but holds no line";
    EXPECT_STREQ(value, "");
}

TEST(ConfValue, LongAndBinaryLinesAreBadInputNotACrash)
{
    string key(2000, 'k');
    EXPECT_EQ(value_of(key + "=1\n", "none"), "1");
    EXPECT_EQ(value_of(key + "=1\n", string(100, 'k')), "1");
    EXPECT_EQ(value_of("v=" + string(10000, 'x'), "v"), string(2045, 'x'));
    EXPECT_EQ(value_of(string(2047, ' ') + "v=2\n", "v"), "2") << "the second piece is a line of its own";
    EXPECT_EQ(value_of(string("a=1\0b=2\n", 8) + "v=3\n", "v"), "3");
    EXPECT_EQ(value_of(string(5000, '\0'), "v"), "");
}

TEST(AtoiDigits, TakesDigitsOnly)
{
    const struct {
        const char* text;
        int32_t value;
    } cases[] = {{nullptr, -1}, {"", 0},    {"0", 0},   {"42", 42}, {"12a", -1},
                 {"-1", -1},    {"+1", -1}, {"1 ", -1}, {" 1", -1}, {"2147483648", INT32_MAX}};
    for (const auto& c : cases) EXPECT_EQ(CUTIL_AtoiDigits(c.text), c.value) << (c.text ? c.text : "null");
}
