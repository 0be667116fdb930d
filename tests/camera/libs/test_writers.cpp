// Every writer that replaces a file, with each call of the C library failing in turn and with a kill before
// each: a reader finds the old file or the new one, and only a killed writer leaves its temporary file.
#include "common/accounts.h"
#include "common/cutil_conf.h"
#include "common/usertable.h"
#include "tests/camera/libs/inside.hpp"
#include "tests/support/failing_calls.hpp"

#include <csignal>
#include <functional>

namespace writers_test {
namespace {

struct Writer {
    const char* name;
    string path, temporary;
    string before;                           // the file's contents
    std::function<int()> write;              // 0: done
    std::function<bool(const string&)> done; // whether the contents are those after it
};

const string kConf = "/etc/inside.conf", kOld = "a=1\nport=80\n", kNew = "a=1\nport=81\n";
const string kUsers = "/etc/qrnpasswd", kAccounts = "/etc/passwd";

bool is_new_conf(const string& text) { return text == kNew; }

std::vector<Writer> writers()
{
    static USERTABLE_S table;
    write_file(kUsers, "");
    EXPECT_EQ(USERTABLE_Init(&table), 0);
    EXPECT_EQ(USERTABLE_AddUser(&table, "a", "pw", 1, 2, 3, 4), 0);
    const string users = read_file(kUsers), accounts = read_file(kAccounts);
    return {
        {"SetConfValue", kConf, CUTIL_CONF_TEMP_PATH, kOld,
         [] { return CUTIL_SetConfValue(kConf.c_str(), "port", "81"); }, is_new_conf},
        {"SetConfValueSep", kConf, CUTIL_CONF_TEMP_PATH, kOld,
         [] { return CUTIL_SetConfValueSep('=', kConf.c_str(), "port", "81"); }, is_new_conf},
        {"SetFileValue", kConf, "/etc/inside.tmp", kOld,
         [] { return CUTIL_SetFileValue(kConf.c_str(), "/etc/inside.tmp", "port", "81"); }, is_new_conf},
        {"AddUser", kUsers, kUsers + ".tmp", users,
         [] { return USERTABLE_AddUser(&table, "b", "pw", 1, 2, 3, 4); },
         [](const string& text) { return text.find("a/") == 0 && text.find("\nb/") != string::npos; }},
        {"SetSystemPassword", kAccounts, "/etc/npasswd", accounts,
         [] {
             QRN_SetSystemPassword("inside", "pw"); // 0 whatever happens
             return QRN_CheckSystemPassword("inside", "pw") - 1;
         },
         [accounts](const string& text) { return text.find(accounts + "inside:") == 0; }},
    };
}

// A process of its own writes, with the nth of the calls failing or being its end. 0: done, 1: refused.
constexpr int kNotReached = 2;
int attempt(const Writer& writer, const char* call, int nth, bool kill)
{
    write_file(writer.path, writer.before);
    unlink(writer.temporary.c_str());
    return in_child([&] {
        if (!freopen("/dev/null", "w", stdout)) return 3;
        failing::arm(call, nth, kill);
        const int result = writer.write();
        return failing::disarm() ? int(result != 0) : kNotReached;
    });
}

struct Writers : testing::Test {
    std::vector<Writer> all = writers();
    const string accounts = read_file(kAccounts);

    ~Writers() override
    {
        write_file(kAccounts, accounts);
        unlink(kConf.c_str());
        unlink(kUsers.c_str());
    }
};

} // namespace

TEST_F(Writers, OneThatFailsLeavesTheFileWholeAndNoTemporaryFile)
{
    int failures = 0;
    for (const Writer& writer : all)
        for (const char* call : failing::kCalls)
            for (int nth = 1, status; (status = attempt(writer, call, nth, false)) != kNotReached; ++nth) {
                SCOPED_TRACE(string(writer.name) + ", " + call + " " + std::to_string(nth));
                ++failures;
                const string after = read_file(writer.path);
                EXPECT_TRUE(writer.done(after) || (status != 0 && after == writer.before)) << after;
                EXPECT_FALSE(exists(writer.temporary));
            }
    EXPECT_GT(failures, 50);
}

TEST_F(Writers, OneThatIsKilledLeavesTheFileWholeAndTheNextOneGoesOnOnceTheLockIsRemoved)
{
    int kills = 0, locked = 0;
    for (const Writer& writer : all)
        for (int nth = 1; attempt(writer, "", nth, true) == 128 + SIGKILL; ++nth) {
            SCOPED_TRACE(string(writer.name) + ", call " + std::to_string(nth));
            ++kills;
            EXPECT_TRUE(writer.done(read_file(writer.path)) || read_file(writer.path) == writer.before);
            if (writer.name == all[0].name && exists(writer.temporary)) {
                ++locked;
                testing::internal::CaptureStderr();
                EXPECT_EQ(printed([&] { EXPECT_EQ(writer.write(), -1); }),
                          "[CUTIL_SetConfValue] temp.conf is already used ...\n");
                EXPECT_NE(testing::internal::GetCapturedStderr().find("remove it"), string::npos);
                unlink(writer.temporary.c_str());
            }
            if (!writer.done(read_file(writer.path))) {
                EXPECT_EQ(writer.write(), 0);
            }
            EXPECT_TRUE(writer.done(read_file(writer.path)));
            EXPECT_FALSE(exists(writer.temporary));
        }
    EXPECT_GT(kills, 50);
    EXPECT_GT(locked, 5);
}
} // namespace writers_test
