// An exploration as JUnit XML: a case a promise.
#include "sim/base/text.hpp"
#include "sim/explore/report.hpp"

namespace vcam::explore {
namespace {

std::string escaped(const std::string& text)
{
    std::string out;
    for (const char c : one_line(text))
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '"')
            out += "&quot;";
        else
            out += c;
    return out;
}

std::string test_case(const Report& report, Promise promise, unsigned& failures)
{
    std::string lines;
    size_t count = 0;
    for (const Broken& b : report.broken)
        if (b.promise == promise && ++count) lines += escaped(b.point + ": " + b.what) + "\n";
    const std::string head =
        text("  <testcase classname=\"vcam explore\" name=\"%s\"", escaped(text_of(promise).text).c_str());
    if (!count) return head + "/>\n";
    ++failures;
    return head + text(">\n    <failure message=\"%zu times\">\n", count) + lines +
           "</failure>\n  </testcase>\n";
}

} // namespace

std::string junit_of(const Report& report)
{
    unsigned failures = 0;
    std::string cases;
    for (unsigned i = 0; i < kPromises; ++i) cases += test_case(report, Promise(i), failures);
    return text("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"%s\" tests=\"%u\" "
                "failures=\"%u\" "
                "timestamp=\"%s\">\n",
                escaped(report.command).c_str(), kPromises, failures, report.date.c_str()) +
           cases + "</testsuite>\n";
}

} // namespace vcam::explore
