// The report as JUnit XML, which build servers and databases of results read.
#include "tools/station/report/report.hpp"
#include "tools/station/text.hpp"

namespace station {
namespace {

std::string attribute(const char* name, const std::string& value)
{
    return std::string(" ") + name + "=\"" + escaped(value) + "\"";
}

std::string property(const char* name, const std::string& value)
{
    return "    <property" + attribute("name", name) + attribute("value", value) + "/>\n";
}

// A failure is the board's; an error leaves open what the board is.
const char* element_of(Verdict verdict)
{
    if (verdict == Verdict::not_tested) return "skipped";
    return judged_bad(verdict) ? "failure" : "error";
}

std::string test_case(const Report& report, const Result& result, bool with_text)
{
    std::string xml = "  <testcase" + attribute("classname", report.line) +
                      attribute("name", result.test->name) + attribute("time", seconds_text(result.seconds)) +
                      ">\n";
    if (result.verdict != Verdict::passed) {
        const std::string words = word_of(result.verdict);
        xml += std::string("    <") + element_of(result.verdict) +
               attribute("message", words + ": " + result.reason);
        if (result.verdict != Verdict::not_tested) xml += attribute("type", words);
        xml += "/>\n";
    }
    if (with_text && !result.text.empty())
        xml += "    <system-out>" + escaped(result.text) + "</system-out>\n";
    return xml + "  </testcase>\n";
}

} // namespace

std::string report_junit(const Report& report, bool with_text)
{
    size_t failures = 0, skipped = report.count(Verdict::not_tested);
    for (const Result& result : report.results) failures += judged_bad(result.verdict);
    const size_t errors = report.results.size() - report.count(Verdict::passed) - failures - skipped;
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- zep-station -->\n<testsuite" +
        attribute("name", report.line) + attribute("tests", std::to_string(report.results.size())) +
        attribute("failures", std::to_string(failures)) + attribute("errors", std::to_string(errors)) +
        attribute("skipped", std::to_string(skipped)) + attribute("time", seconds_text(report.seconds)) +
        attribute("timestamp", utc(report.begun).substr(0, 19)) + attribute("id", report.id) +
        ">\n  <properties>\n";
    const Board& b = report.board;
    xml += property("target", report.target) + property("mac", b.mac) + property("serial_no", b.serial) +
           property("product_code", b.product) + property("model", b.model) +
           property("firmware", b.firmware);
    xml += "  </properties>\n";
    for (const Result& result : report.results) xml += test_case(report, result, with_text);
    return xml + "</testsuite>\n";
}

} // namespace station
