// Every writer that replaces a file, with each call of the C library failing in turn and with a kill before
// each: a reader finds the old file or the new one, and only a killed writer leaves its temporary file.
#include "common/accounts.h"
#include "common/cutil_conf.h"
#include "common/usertable.h"
#include "tests/camera/libs/inside.hpp"
#include "tests/support/failing_calls.hpp"

#include <csignal>
#include <functional>

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

void reset(const Writer& writer)
{
    write_file(writer.path, writer.before);
    unlink(writer.temporary.c_str());
}

// Old or new, and new when the writer says so.
void expect_whole(const Writer& writer, bool success)
{
    const string after = read_file(writer.path);
    EXPECT_TRUE(writer.done(after) || (!success && after == writer.before)) << after;
}

struct Writers : testing::Test {
    std::vector<Writer> all = writers();

    ~Writers() override
    {
        for (const Writer& writer : all) reset(writer);
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
            for (int nth = 1;; ++nth) {
                SCOPED_TRACE(string(writer.name) + ", " + call + " " + std::to_string(nth));
                reset(writer);
                int result = 0;
                bool reached = false;
                printed([&] {
                    failing::arm(call, nth);
                    result = writer.write();
                    reached = failing::disarm();
                });
                if (!reached) break;
                ++failures;
                expect_whole(writer, result == 0);
                EXPECT_FALSE(exists(writer.temporary));
            }
    EXPECT_GT(failures, 50);
}

TEST_F(Writers, OneThatIsKilledLeavesTheFileWholeAndTheNextOneGoesOnOnceTheLockIsRemoved)
{
    int kills = 0, locked = 0;
    for (const Writer& writer : all)
        for (int nth = 1;; ++nth) {
            SCOPED_TRACE(string(writer.name) + ", call " + std::to_string(nth));
            reset(writer);
            fflush(stdout);
            const pid_t child = fork();
            if (child == 0) {
                failing::arm("", nth, true);
                writer.write();
                _exit(0);
            }
            int status = 0;
            waitpid(child, &status, 0);
            if (!WIFSIGNALED(status)) break;
            ++kills;
            expect_whole(writer, false);
            const bool is_lock = writer.name == all[0].name && exists(writer.temporary);
            if (is_lock) {
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
