// Processes of this machine by the path they were started with.
#include "service/applets.h"
#include "service/cutil_proc.h"
#include "tests/support/temp_folder.hpp"
#include "tests/support/child.hpp"
#include "tests/support/run.hpp"

#include <chrono>
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

TEST(Proc, IsFoundByTheBeginningOfItsFirstArgumentOnly)
{
    string name = unique_name("web");
    Child webs(name + "s");
    EXPECT_EQ(CUTIL_IsProc(name.c_str(), 0), 1);
    EXPECT_EQ(CUTIL_IsProc((name + "s").c_str(), 0), 1);
    EXPECT_EQ(CUTIL_IsProc((name + "sx").c_str(), 0), 0);
    EXPECT_EQ(CUTIL_IsProc("-c", 0), 0) << "not its second argument";
    EXPECT_EQ(CUTIL_IsProc(name.c_str() + 1, 0), 0) << "nor the end of its name";
}

TEST(Proc, FirstArgumentsAreReadTo256CharactersAndForSignalsToTheLineEnd)
{
    string name = unique_name("");
    string text = name + string(256 - name.size(), 'n');
    Child lengthy(text + string(300, 'n')), lines(name + "a\nb");
    EXPECT_EQ(CUTIL_IsProc(text.c_str(), 0), 1);
    EXPECT_EQ(CUTIL_IsProc((text + "n").c_str(), 0), 0);
    EXPECT_EQ(CUTIL_IsProc((name + "a\nb").c_str(), 0), 1);
    CUTIL_KillProc((name + "a\nb").c_str(), SIGKILL);
    EXPECT_EQ(lines.ended_by(), 0);
    CUTIL_KillProc((name + "a\n").c_str(), SIGKILL);
    EXPECT_EQ(lines.wait_end(), SIGKILL);
    CUTIL_KillProc(text.c_str(), SIGKILL);
    EXPECT_EQ(lengthy.ended_by(), 0);
    CUTIL_KillProc(text.substr(0, 255).c_str(), SIGKILL);
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

TEST(Proc, ASignalReachesAllThatMatchAndTheWaitEndsWithThem)
{
    string name = unique_name("d");
    Child first(name + "1"), second(name + "2"), other(unique_name("d"));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CUTIL_KillProc(name.c_str(), SIGTERM), 0);
    EXPECT_EQ(CUTIL_WaitProcEnd(name.c_str()), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(first.wait_end(), SIGTERM);
    EXPECT_EQ(second.wait_end(), SIGTERM);
    EXPECT_EQ(other.ended_by(), 0);
}

TEST(ProcList, OverlongLinesAreSkippedWholeAndTheOthersUsed)
{
    string base = unique_name("");
    string longest = base + string(30 - base.size(), 'x'); // 31 with its line end
    Child used(longest), over(longest + "y"), crlf(base + "crlf"), tail(base + "tail"),
        open_end(base + "open");
    TempFolder folder;
    string list = folder.write("list", longest + "y\n" +                        // 32 with its line end
                                           string(255, 'z') + base + "tail\n" + // the tail is no name
                                           base + "crlf\r\n" + base + "open");
    EXPECT_EQ(CUTIL_KillProcAll(list.c_str(), SIGTERM), 0);
    EXPECT_EQ(crlf.wait_end(), SIGTERM);
    EXPECT_EQ(open_end.wait_end(), SIGTERM);
    EXPECT_EQ(tail.ended_by() + used.ended_by() + over.ended_by(), 0);
    list = folder.write("list", longest + "\n");
    EXPECT_EQ(CUTIL_KillProcAll(list.c_str(), SIGKILL), 0);
    EXPECT_EQ(used.wait_end(), SIGKILL);
    EXPECT_EQ(over.wait_end(), SIGKILL) << "a prefix match";
}

TEST(ProcList, HoldsSixteenNamesAndMustExist)
{
    string base = unique_name("");
    Child sixteenth(base + "26"), seventeenth(base + "27");
    string names = string(60, 'l') + "\n";
    for (int i = 11; i <= 40; ++i) names += base + std::to_string(i) + "\n";
    TempFolder folder;
    EXPECT_EQ(CUTIL_KillProcAll(folder.write("list", names).c_str(), SIGTERM), 0);
    EXPECT_EQ(sixteenth.wait_end(), SIGTERM);
    EXPECT_EQ(CUTIL_KillProcAll((folder / "none").c_str(), SIGTERM), -1);
    EXPECT_EQ(seventeenth.ended_by(), 0);
}

TEST(Xkill, StopsAndReportsByPath)
{
    string name = unique_name("confd");
    Child first(name);
    EXPECT_EQ(xkill("alive", name), "Alive " + name + "\n");
    EXPECT_EQ(xkill("sigterm", name) + xkill("SIGHUP", name), "");
    EXPECT_EQ(first.ended_by(), 0) << "an unknown word does nothing";
    EXPECT_EQ(xkill("SIGTERM", name), "");
    EXPECT_EQ(first.wait_end(), SIGTERM);
    EXPECT_EQ(xkill("alive", name), "");
    Child second(name), third(name);
    EXPECT_EQ(xkill("SIGKILL", name), "");
    EXPECT_EQ(second.wait_end() + third.wait_end(), 2 * SIGKILL);
    Child last(name);
    EXPECT_EQ(xkill(name), "");
    EXPECT_EQ(last.wait_end(), SIGTERM);
}
