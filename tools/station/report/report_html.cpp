// The report as a page to print: one file without script and without outside parts.
#include "tools/station/report/report.hpp"
#include "tools/station/text.hpp"

namespace station {
namespace {

constexpr const char* kHead = R"(<!doctype html>
<!-- zep-station -->
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<style>
:root { color-scheme: light dark; --line: #8888; --good: #187a2f; --bad: #b3261e; }
@media (prefers-color-scheme: dark) { :root { --good: #6fd68a; --bad: #ff8a80; } }
@media print { :root { color-scheme: light; --good: #000; --bad: #000; } body { margin: 0; } }
body { font: 15px/1.4 system-ui, sans-serif; margin: 2em auto; max-width: 60em; padding: 0 1em; }
table { border-collapse: collapse; width: 100%; }
th, td { border-bottom: 1px solid var(--line); padding: .35em .6em; text-align: left; vertical-align: top; }
td.number { text-align: right; font-variant-numeric: tabular-nums; }
.good { color: var(--good); } .bad { color: var(--bad); } .good, .bad { font-weight: 600; }
pre { white-space: pre-wrap; overflow-wrap: anywhere; margin: .3em 0; font-size: 12px; }
tr { break-inside: avoid; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .2em 1em; } dt { opacity: .75; } dd { margin: 0; }
.sign { margin-top: 3em; } .sign span { border-top: 1px solid; padding: .2em 4em 0 0; margin-right: 2em; }
</style>
)";

std::string entry(const char* name, const std::string& value)
{
    return std::string("<dt>") + name + "</dt><dd>" + (value.empty() ? "\xE2\x80\x93" : escaped(value)) +
           "</dd>\n";
}

// A sign beside the word, so that colour is not the only difference.
std::string judged(bool good, const std::string& word)
{
    return std::string("<span class=\"") + (good ? "good\">\xE2\x9C\x94 " : "bad\">\xE2\x9C\x98 ") +
           escaped(word) + "</span>";
}

std::string row(size_t number, const Result& result, bool with_text)
{
    std::string html =
        "<tr><td class=\"number\">" + std::to_string(number) + "</td><td>" + escaped(result.test->name);
    if (with_text && !result.text.empty()) html += "<pre>" + escaped(result.text) + "</pre>";
    html += "</td><td>" + judged(result.verdict == Verdict::passed, word_of(result.verdict));
    if (!result.reason.empty()) html += "<br>" + escaped(result.reason);
    if (!result.answered_by.empty())
        html += "<br>answer: " + escaped(result.answer) + " (" + escaped(result.answered_by) + ")";
    return html + "</td><td class=\"number\">" + seconds_text(result.seconds) + " s</td></tr>\n";
}

} // namespace

std::string report_html(const Report& report, bool with_text)
{
    const Board& b = report.board;
    const std::string title = b.serial.empty() ? report.line : report.line + ", " + b.serial;
    std::string html = kHead;
    html += "<title>" + escaped(title) + "</title>\n</head>\n<body>\n<h1>" + escaped(report.line) +
            "</h1>\n<p>" +
            judged(report.passed(), report.passed()   ? "passed"
                                    : report.finished ? "not passed"
                                                      : "broken off") +
            "</p>\n<dl>\n";
    html += entry("Serial number", b.serial) + entry("MAC address", b.mac) + entry("Product", b.product) +
            entry("Model", b.model) + entry("Firmware", b.firmware) + entry("Target", report.target) +
            entry("Begun", utc(report.begun)) + entry("Duration", seconds_text(report.seconds) + " s") +
            entry("Record", report.id);
    html += "</dl>\n<table>\n<thead><tr><th>#</th><th>Test</th><th>Verdict</th><th>Time</th></tr></"
            "thead>\n<tbody>\n";
    size_t number = 0;
    for (const Result& result : report.results) html += row(++number, result, with_text);
    return html +
           "</tbody>\n</table>\n<p class=\"sign\"><span>Date</span><span>Name</span></p>\n</body>\n</html>\n";
}

} // namespace station
