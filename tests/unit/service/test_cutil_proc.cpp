// Processes of this machine by the path they were started with.
#include "service/applets.h"
#include "service/cutil_proc.h"
#include "tests/support/temp_folder.hpp"
#include "tests/support/child.hpp"
#include "tests/support/run.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using std::string;

string said_of_ours(auto&& action)
{
    std::istringstream output(printed(action));
    // Other programs of the machine may end during the scan, which quiet callers are told as well.
    string text, line;
    while (std::getline(output, line))
        if (line.rfind("CUTIL_IsProc error while open /proc/", 0) != 0) text += line + "\n";
    return text;
}

string xkill(const string& word, const string& path = "")
{
    char name[] = "xkill";
    string first = word, second = path;
    char* argv[] = {name, first.data(), second.data(), nullptr};
    return said_of_ours([&] { EXPECT_EQ(xkill_main(path.empty() ? 2 : 3, argv), 0); });
}

} // namespace

TEST(Proc, IsFoundByTheBeginningOfItsFirstArgumentOnlyAndForSignalsOfItsFirstLine)
{
    const string name = unique_name(""), longest = name + string(256 - name.size(), 'n');
    Child lengthy(longest + string(300, 'n')), lines(name + "a\nb");
    const std::pair<string, int> cases[] = {{name, 1},           {longest, 1},       {longest + "n", 0},
                                            {name + "a\nb", 1},  {"-c", 0}, // not its second argument
                                            {name + "a\nbx", 0}, {name.substr(1), 0}};
    for (const auto& [start, found] : cases) EXPECT_EQ(CUTIL_IsProc(start.c_str(), 0), found) << start;
    CUTIL_KillProc((name + "a\nb").c_str(), SIGKILL);
    EXPECT_EQ(lines.ended_by(), 0);
    CUTIL_KillProc((name + "a\n").c_str(), SIGKILL);
    EXPECT_EQ(lines.wait_end(), SIGKILL);
    CUTIL_KillProc(longest.c_str(), SIGKILL);
    EXPECT_EQ(lengthy.ended_by(), 0) << "one character less is read";
    CUTIL_KillProc(longest.substr(0, 255).c_str(), SIGKILL);
    EXPECT_EQ(lengthy.wait_end(), SIGKILL);
}

TEST(Proc, TheTraceShowsEveryEntryEveryProcessAndEveryComparison)
{
    string name = unique_name("traced");
    Child child(name);
    string pid = std::to_string(child.pid());
    string trace = said_of_ours([&] { EXPECT_EQ(CUTIL_IsProc(name.c_str(), 1), 1); });
    EXPECT_EQ(trace.rfind("CUTIL_IsProc dirp->d_name : ", 0), 0u);
    EXPECT_NE(trace.find("CUTIL_IsProc dirp->d_name : uptime\n"), string::npos);
    EXPECT_EQ(trace.find("CUTIL_IsProc 4 : 1 : "), string::npos) << "process 1 is not considered";
    string size = std::to_string(name.size());
    string last = "CUTIL_IsProc dirp->d_name : " + pid + "\nCUTIL_IsProc 4 : " + pid + " : /proc/" + pid +
                  "/cmdline\n_name         : [" + name + "]\nbuf           : [" + name +
                  "]\nstrlen(_name) : " + size + "\nstrlen(buf)   : " + size + "\n\n";
    ASSERT_GE(trace.size(), last.size());
    EXPECT_EQ(trace.substr(trace.size() - last.size()), last) << "the scan ends at the match";
}

TEST(ProcList, OverlongLinesAreSkippedWholeAndTheFirstSixteenOthersUsed)
{
    const string base = unique_name("");
    const string longest = base + string(30 - base.size(), 'x'); // 31 with its line end
    Child used(longest), over(longest + "y"), crlf(base + "crlf"), tail(base + "tail"),
        open_end(base + "open");
    Child sixteenth(base + "26"), seventeenth(base + "27");
    TempFolder folder;
    const auto kill_all = [&](const string& names, int signal) {
        return CUTIL_KillProcAll(folder.write("list", names).c_str(), signal);
    };
    // 32 with its line end; the tail of a long line is no name.
    EXPECT_EQ(
        kill_all(longest + "y\n" + string(255, 'z') + base + "tail\n" + base + "crlf\r\n" + base + "open",
                 SIGTERM),
        0);
    EXPECT_EQ(crlf.wait_end(), SIGTERM);
    EXPECT_EQ(open_end.wait_end(), SIGTERM);
    EXPECT_EQ(tail.ended_by() + used.ended_by() + over.ended_by(), 0);
    EXPECT_EQ(kill_all(longest + "\n", SIGKILL), 0);
    EXPECT_EQ(used.wait_end(), SIGKILL);
    EXPECT_EQ(over.wait_end(), SIGKILL) << "a prefix match";
    string names = string(60, 'l') + "\n";
    for (int i = 11; i <= 40; ++i) names += base + std::to_string(i) + "\n";
    EXPECT_EQ(kill_all(names, SIGTERM), 0);
    EXPECT_EQ(sixteenth.wait_end(), SIGTERM);
    EXPECT_EQ(CUTIL_KillProcAll((folder / "none").c_str(), SIGTERM), -1);
    EXPECT_EQ(seventeenth.ended_by(), 0);
}

TEST(Xkill, StopsAllThatMatchReportsByPathAndWaits)
{
    const string name = unique_name("d");
    Child first(name), other(unique_name("d"));
    EXPECT_EQ(xkill("alive", name), "Alive " + name + "\n");
    EXPECT_EQ(xkill("sigterm", name) + xkill("SIGHUP", name), "");
    EXPECT_EQ(first.ended_by(), 0) << "an unknown word does nothing";
    EXPECT_EQ(xkill("SIGTERM", name), "");
    EXPECT_EQ(first.wait_end(), SIGTERM);
    EXPECT_EQ(xkill("alive", name), "");
    Child second(name), third(name + "1");
    EXPECT_EQ(xkill("SIGKILL", name), "");
    EXPECT_EQ(second.wait_end() + third.wait_end(), 2 * SIGKILL);
    Child last(name);
    EXPECT_EQ(xkill(name), "");
    EXPECT_EQ(last.wait_end(), SIGTERM);
    EXPECT_EQ(CUTIL_WaitProcEnd(name.c_str()), 0);
    EXPECT_EQ(other.ended_by(), 0);
}
