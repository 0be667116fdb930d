// Command lines and what they write, as files of tests give them: one case under each line "== TITLE".
//
//   -- TEXT           a comment
//   -- needs: COMMAND  what must succeed on this PC; else the case fails, or is skipped where ZEP_MAY_SKIP is 1
//   $ COMMAND         for the shell, in an empty folder of the case; further lines of it begin with "> "
//   [STATUS]          the last line of a command that fails
//   other lines       what the command writes to both streams; "..." stands for anything within a line, for any lines
//                     when it is a line of its own
//
// Commands above the first title come first in every case. The first argument is the file; TOOLS are the folders of the
// programs.
#include "tests/support/patterns.hpp"
#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <vector>

namespace {

std::string file; // the first argument

struct Step {
    std::string command;
    Lines expected;
};

struct Case {
    std::string title, first, needs;
    std::vector<Step> steps;
};

void PrintTo(const Case& one, std::ostream* out) { *out << one.title; }

// Blank lines part the cases.
void strip(Lines& lines)
{
    while (!lines.empty() && lines.back().empty()) lines.pop_back();
}

std::vector<Case> cases()
{
    std::vector<Case> all(1);
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        Case& now = all.back();
        if (line.starts_with("== "))
            all.push_back({line.substr(3), all[0].first, "", {}});
        else if (line.starts_with("-- needs: "))
            now.needs = line.substr(10);
        else if (line.starts_with("-- "))
            continue;
        else if (line.starts_with("$ ") && now.title.empty())
            now.first += line.substr(2) + "\n";
        else if (line.starts_with("$ "))
            now.steps.push_back({line.substr(2), {}});
        else if (line.starts_with("> "))
            now.steps.back().command += "\n" + line.substr(2);
        else if (!now.steps.empty())
            now.steps.back().expected.push_back(line);
    }
    all.erase(all.begin());
    if (all.empty()) {
        std::cerr << file << ": no case\n";
        exit(2);
    }
    for (Case& one : all)
        for (Step& step : one.steps) strip(step.expected);
    return all;
}

std::string joined(const Lines& lines)
{
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// One shell for all commands, in the case's folder. Each command's output ends with a mark and its status.
std::string script(const std::string& folder, const Case& one)
{
    std::string text = "cd " + folder + "\nPATH='" TOOLS "':$PATH:/usr/sbin\nexec 2>&1\n" + one.first;
    for (const Step& step : one.steps) text += "{ " + step.command + "\n}\nprintf '\\n@@@%d\\n' $?\n";
    return text;
}

// What each command has written.
std::vector<Lines> outputs(const std::string& text)
{
    std::vector<Lines> all(1);
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("@@@")) {
            if (all.back().back().empty()) all.back().pop_back();
            if (line != "@@@0") all.back().push_back("[" + line.substr(3) + "]");
            all.emplace_back();
        } else {
            all.back().push_back(line);
        }
    }
    all.pop_back();
    return all;
}

class Transcript : public testing::TestWithParam<Case> {};

} // namespace

TEST_P(Transcript, IsTrue)
{
    const TempFolder folder, work;
    const std::vector<Step>& steps = GetParam().steps;
    if (!GetParam().needs.empty() && say("{ " + GetParam().needs + "; } 2>&1").status != 0) {
        ASSERT_TRUE(may_skip()) << "this PC lacks: " << GetParam().needs;
        GTEST_SKIP();
    }
    const std::string commands = folder.write("commands", script(work.path(), GetParam()));
    const std::vector<Lines> seen = outputs(say("sh " + commands).text);
    ASSERT_EQ(seen.size(), steps.size()) << "the shell ended early";
    for (size_t i = 0; i < steps.size(); ++i)
        EXPECT_TRUE(matches(steps[i].expected, seen[i])) << "$ " << steps[i].command << "\n"
                                                         << joined(seen[i]) << "not\n"
                                                         << joined(steps[i].expected);
}

INSTANTIATE_TEST_SUITE_P(Host, Transcript, testing::ValuesIn(cases()), [](const auto& one) {
    std::string name = one.param.title;
    std::erase_if(name, [](char c) { return !isalnum(c); });
    return name;
});

int main(int argc, char** argv)
{
    if (argc > 1) file = argv[1];
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
