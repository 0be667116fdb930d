// Reading of key=value files: tokens and single settings.
#include "common/cutil_conf.h"
#include "tests/support/memory_file.hpp"

#include <gtest/gtest.h>

using std::string;

TEST(ConfToken, EndsAtEqualsOrLineEndTrimsOneBlankAndThenUnquotes)
{
    const struct {
        const char *line, *token, *rest; // text at the returned cursor; "(null)" without one
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
        char token[32] = "old";
        const char* next = CUTIL_GetConfToken(token, c.line);
        EXPECT_STREQ(token, c.token) << c.line;
        EXPECT_STREQ(next ? next : "(null)", c.rest) << c.line;
    }
}

TEST(ConfValue, IsThatOfTheFirstKeyThatBeginsSoElseTheLastRead)
{
    const string key(2000, 'k');
    const struct {
        string content, key, value;
    } cases[] = {
        {"a=1\nport=80\nport=81\n", "port", "80"},
        {"port_2=81\nport=80\n", "port", "81"},
        {"por=1\nport=80\n", "port", "80"},
        {"a=1\nb=2\n", "", "1"},
        {"VERSION 3\nVERSION=1\n", "VERSION", ""},
        {"#port=1\n[port]\n\n  port = \"8 0\"\r\n", "port", "8 0"},
        {"port=80", "port", "80"},
        {"url=a=b\n", "url", "a"},
        {"a=1\nb=2\n#c=3\n[d]\n\n", "x", "2"},
        {"a=1\nb\n", "x", ""},
        {"", "x", ""},
        {"a=1\nkey= #v\n", "key", "1"},     // the token stays as the line before left it
        {"a=1\nkey=#v\nb=2\n", "key", "2"}, // the key's own cursor ends the line
        {"a=1\nkey=\n", "key", ""},
        {key + "=1\n", "none", "1"}, // long and binary lines are bad input, not a crash
        {key + "=1\n", string(100, 'k'), "1"},
        {"v=" + string(10000, 'x'), "v", string(2045, 'x')},
        {string(2047, ' ') + "v=2\n", "v", "2"}, // the second piece is a line of its own
        {string("a=1\0b=2\n", 8) + "v=3\n", "v", "3"},
        {string(5000, '\0'), "v", ""},
    };
    for (const auto& c : cases) {
        char value[CUTIL_CONF_VALUE_SIZE] = "untouched";
        EXPECT_EQ(CUTIL_GetConfValue(MemoryFile(c.content).path().c_str(), c.key.c_str(), value), 0);
        EXPECT_EQ(value, c.value) << c.content;
    }
    char value[CUTIL_CONF_VALUE_SIZE] = "old";
    EXPECT_EQ(CUTIL_GetConfValue("/none", "a", value), -1);
    EXPECT_STREQ(value, "old");
    EXPECT_EQ(CUTIL_GetConfValue("/", "a", value), 0) << "a folder opens but holds no line";
    EXPECT_STREQ(value, "");
}
