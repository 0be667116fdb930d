// The examples of the applets' manual pages, on the virtual camera: what a page shows is what happens.
//
// A line "# command" of an example is given to the camera's shell; the lines up to the next one are what it
// writes to standard output, as in a transcript. Comments in a page prepare the camera:
//   .\" camera: OPTIONS    options of vcam new
//   .\" run: OPTIONS       options of vcam run
//   .\" package: PATH, .\" vcam: COMMAND ARGUMENT ...   as in a transcript
#include "tests/support/transcript.hpp"

#include <gmock/gmock.h>

namespace {

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

struct Page {
    Transcript examples; // a step each, with all its commands
    Lines sections;
};

// A line of an example: a command, or what it writes.
void add_line(Step& step, std::string line)
{
    line = replaced(replaced(line, "\\&", ""), "\\e", "\\");
    step.expected["out"].push_back(shown(line));
    if (take(line, "# "))
        step.command += "printf '\\f%s\\n' '# " + replaced(line, "'", "'\\''") + "'\n" + line + "\n";
}

Page read_page(const fs::path& path)
{
    Page page;
    Lines before;
    std::ifstream in(path);
    bool literal = false;
    for (std::string line; std::getline(in, line);) {
        if (take(line, ".\\\" ")) {
            if (take(line, "camera: "))
                page.examples.camera_options = words_of(line);
            else if (take(line, "run: "))
                page.examples.run_options = words_of(line);
            else if (line.starts_with("vcam: ") || line.starts_with("package: "))
                before.push_back(line);
        } else if (take(line, ".Sh ")) {
            page.sections.push_back(line);
        } else if (line.starts_with(".Bd -literal") && page.sections.back() == "EXAMPLES") {
            literal = true;
            page.examples.steps.push_back(
                {std::exchange(before, {}), "", {{"err", {"..."}}, {"status", {"..."}}}});
        } else if (line == ".Ed") {
            literal = false;
        } else if (literal) {
            add_line(page.examples.steps.back(), line);
        }
    }
    return page;
}

enum class Which { own, all }; // an alias only leads to another page

Lines pages(Which which)
{
    Lines names;
    for (const auto& entry : fs::directory_iterator(MAN_PAGES)) {
        const bool alias = read_file(entry.path()).starts_with(".so ");
        if (entry.path().extension() == ".8" && (!alias || which == Which::all))
            names.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ManPage : public testing::TestWithParam<std::string> {};

} // namespace

TEST_P(ManPage, HasTrueExamplesAndTheUsualSections)
{
    const Page page = read_page(fs::path(MAN_PAGES) / (GetParam() + ".8"));
    EXPECT_THAT(page.sections, testing::IsSupersetOf({"NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS",
                                                      "EXAMPLES", "SEE ALSO"}));
    ASSERT_FALSE(page.examples.steps.empty());
    run(page.examples);
}

INSTANTIATE_TEST_SUITE_P(Section8, ManPage, testing::ValuesIn(pages(Which::own)),
                         [](const auto& page) { return page.param; });

TEST(ManPages, EveryAppletHasOne)
{
    Lines list = words_of(Camera().shell("zep | tail -n 1 | tr -d ,"));
    list.push_back("zep");
    EXPECT_THAT(list, testing::UnorderedElementsAreArray(pages(Which::all)));
}
