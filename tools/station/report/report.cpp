// What a line has found on a board, and its form for programs.
#include "tools/station/report/report.hpp"

#include <algorithm>
#include <iterator>

namespace station {
namespace {

constexpr const char* kWords[] = {"waiting",     "running",    "passed",       "failed",    "wrong answer",
                                  "no answer",   "no verdict", "two verdicts", "hung",      "interrupted",
                                  "board reset", "garbled",    "target lost",  "not tested"};
static_assert(std::size(kWords) == size_t(Verdict::not_tested) + 1);

cli::Json result_json(const Result& result, bool with_text)
{
    cli::Json json = {{"name", result.test->name},          {"run", result.test->run},
                      {"verdict", word_of(result.verdict)}, {"reason", result.reason},
                      {"seconds", result.seconds},          {"runs", result.runs}};
    if (!result.answered_by.empty()) {
        json["answer"] = result.answer;
        json["answered_by"] = result.answered_by;
    }
    if (with_text) json["text"] = result.text;
    return json;
}

} // namespace

const char* word_of(Verdict verdict) { return kWords[size_t(verdict)]; }

bool judged_bad(Verdict verdict) { return verdict == Verdict::failed || verdict == Verdict::wrong_answer; }

bool settled(Verdict verdict) { return verdict != Verdict::waiting && verdict != Verdict::running; }

size_t Report::count(Verdict verdict) const
{
    return size_t(
        std::count_if(results.begin(), results.end(), [&](auto& r) { return r.verdict == verdict; }));
}

bool Report::passed() const { return !results.empty() && count(Verdict::passed) == results.size(); }

std::string utc(time_t time)
{
    tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

cli::Json report_json(const Report& report, bool with_text)
{
    const Board& b = report.board;
    cli::Json json = {{"program", "zep-station"},
                      {"id", report.id},
                      {"begun", utc(report.begun)},
                      {"seconds", report.seconds},
                      {"passed", report.passed()},
                      {"finished", report.finished},
                      {"target", report.target},
                      {"line", report.line},
                      {"board",
                       {{"mac", b.mac},
                        {"serial_no", b.serial},
                        {"product_code", b.product},
                        {"model", b.model},
                        {"firmware", b.firmware}}},
                      {"tests", cli::Json::array()}};
    for (const Result& result : report.results) json["tests"].push_back(result_json(result, with_text));
    return json;
}

} // namespace station
