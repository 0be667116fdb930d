// The examples of the applets' man pages, on the virtual camera: what a page shows is what happens.
//
// A line "# command" of an example is given to the camera's shell; the lines up to the next one are what it
// writes to standard output. "..." stands for anything, within a line or as a line of its own. Comments in a
// page prepare the camera:
//   .\" camera: OPTIONS    options of vcam new
//   .\" run: OPTIONS       options of vcam run
//   .\" package: PATH      a firmware package that the camera takes
//   .\" vcam: COMMAND ARGUMENT ...   a vcam command on this camera, quoted as for the shell
#include "tests/support/firmware.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <map>

namespace {

struct Step {
    std::string command;
    Lines expected;
};

struct Page {
    Lines camera_options, run_options;
    Lines packages, commands;
    std::vector<std::vector<Step>> examples;
    Lines sections;
};

Lines words(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

bool take(std::string& line, const std::string& prefix)
{
    if (line.rfind(prefix, 0) != 0) return false;
    line.erase(0, prefix.size());
    return true;
}

void prepare(Page& page, std::string line)
{
    if (take(line, "camera: ")) page.camera_options = words(line);
    if (take(line, "run: ")) page.run_options = words(line);
    if (take(line, "package: ")) page.packages.push_back(line);
    if (take(line, "vcam: ")) page.commands.push_back(line);
}

Page read_page(const fs::path& path)
{
    Page page;
    std::ifstream in(path);
    bool literal = false;
    for (std::string line; std::getline(in, line);) {
        if (take(line, ".\\\" ")) {
            prepare(page, line);
        } else if (take(line, ".Sh ")) {
            page.sections.push_back(line);
        } else if (line.rfind(".Bd -literal", 0) == 0) {
            literal = !page.sections.empty() && page.sections.back() == "EXAMPLES";
            if (literal) page.examples.emplace_back();
        } else if (line == ".Ed") {
            literal = false;
        } else if (literal) {
            line = replaced(replaced(line, "\\&", ""), "\\e", "\\");
            if (take(line, "# "))
                page.examples.back().push_back({line, {}});
            else if (!page.examples.back().empty())
                page.examples.back().back().expected.push_back(line);
        }
    }
    return page;
}

bool matches(const std::string& pattern, const std::string& text)
{
    size_t dots = pattern.find("...");
    if (dots == std::string::npos) return pattern == text;
    std::string tail = pattern.substr(dots + 3);
    return text.size() >= dots + tail.size() && text.compare(0, dots, pattern, 0, dots) == 0 &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool matches(const Lines& expected, size_t e, const Lines& seen, size_t s)
{
    if (e == expected.size()) return s == seen.size();
    if (expected[e] == "...")
        return matches(expected, e + 1, seen, s) || (s < seen.size() && matches(expected, e, seen, s + 1));
    return s < seen.size() && matches(expected[e], seen[s]) && matches(expected, e + 1, seen, s + 1);
}

// One shell for all commands of an example, a mark before the output of each.
std::string script(const std::vector<Step>& steps)
{
    std::string text;
    for (const Step& step : steps) text += "echo '@@@'\n" + step.command + "\n";
    return text;
}

std::vector<Lines> outputs(const std::string& console)
{
    std::vector<Lines> all;
    std::istringstream in(console);
    for (std::string line; std::getline(in, line);) {
        size_t mark = line.find("@@@"); // behind a last line without its end, too
        if (mark != 0 && !all.empty()) all.back().push_back(line.substr(0, mark));
        if (mark != std::string::npos) all.emplace_back();
    }
    return all;
}

Lines applets()
{
    Lines names;
    for (std::string name : words(Camera().shell("zep | tail -n 1")))
        names.push_back(name.back() == ',' ? name.substr(0, name.size() - 1) : name);
    return names;
}

class ManPage : public testing::TestWithParam<std::string> {};

} // namespace

TEST_P(ManPage, ExamplesAreTrue)
{
    Page page = read_page(fs::path(MAN_PAGES) / GetParam());
    ASSERT_FALSE(page.examples.empty());
    Camera camera(page.camera_options);
    for (const std::string& path : page.packages)
        write_file(camera.root(path), make_firmware(camera.folder()).pack());
    for (const std::string& line : page.commands) {
        size_t verb = std::min(line.find(' '), line.size());
        std::string command =
            VCAM " " + line.substr(0, verb) + " '" + camera.state("").string() + "'" + line.substr(verb);
        EXPECT_EQ(system((command + " > /dev/null").c_str()), 0) << command;
    }
    for (const auto& steps : page.examples) {
        ASSERT_FALSE(steps.empty());
        Outcome outcome = camera.run({"sh", "-c", script(steps)}, page.run_options);
        std::vector<Lines> seen = outputs(outcome.out);
        ASSERT_EQ(seen.size(), steps.size()) << outcome.out << outcome.err;
        for (size_t i = 0; i < steps.size(); ++i)
            EXPECT_TRUE(matches(steps[i].expected, 0, seen[i], 0))
                << "# " << steps[i].command << "\n"
                << testing::PrintToString(seen[i]) << "\nthe page has\n"
                << testing::PrintToString(steps[i].expected);
    }
}

TEST_P(ManPage, HasTheUsualSections)
{
    Lines sections = read_page(fs::path(MAN_PAGES) / GetParam()).sections;
    for (const char* name : {"NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "EXAMPLES", "SEE ALSO"})
        EXPECT_THAT(sections, testing::Contains(name));
}

INSTANTIATE_TEST_SUITE_P(Section8, ManPage, testing::ValuesIn([] {
                             Lines pages;
                             for (const auto& entry : fs::directory_iterator(MAN_PAGES)) {
                                 std::string name = entry.path().filename().string();
                                 bool alias = read_file(entry.path()).rfind(".so ", 0) == 0;
                                 if (entry.path().extension() == ".8" && !alias) pages.push_back(name);
                             }
                             std::sort(pages.begin(), pages.end());
                             return pages;
                         }()),
                         [](const auto& page) { return page.param.substr(0, page.param.find('.')); });

TEST(ManPages, EveryAppletHasOne)
{
    Lines names = applets();
    ASSERT_EQ(names.size(), 23u);
    for (const std::string& name : names)
        EXPECT_TRUE(fs::exists(fs::path(MAN_PAGES) / (name + ".8"))) << name;
}
