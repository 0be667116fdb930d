// The verdict of one run of a test.
#include "tools/station/verdict.hpp"

#include "tools/station/text.hpp"

#include <algorithm>
#include <fnmatch.h>

namespace station {
namespace {

constexpr int kSignalBase = 128, kSignals = 65; // of exit statuses, as a shell counts them
constexpr size_t kLongestLine = 1000;           // that a pattern is held against

Words lines_of(const std::string& text)
{
    Words lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        line.resize(line.find_last_not_of(" \t\r") + 1);
        lines.push_back(line.substr(0, kLongestLine));
        at = end + 1;
    }
    return lines;
}

void give(Result& result, Verdict verdict, const std::string& reason = "")
{
    result.verdict = verdict;
    result.reason = harmless_line(reason);
}

// What an applet says about a failure: on its standard error behind its name, else there at the end, else in the step
// before its verdict.
std::string why_failed(const Test& test, const Outcome& outcome, const Words& lines)
{
    for (const std::string& line : lines_of(outcome.err))
        if (line.rfind(test.run[0] + ": ", 0) == 0) return line;
    if (const std::string line = last_line(outcome.err); !line.empty()) return line;
    const auto word = std::find(lines.begin(), lines.end(), "failed");
    return word == lines.begin() ? "" : *(word - 1);
}

void judge_words(const Test& test, const Outcome& outcome, Result& result)
{
    const Words lines = lines_of(outcome.out);
    const auto good = std::count(lines.begin(), lines.end(), "successful");
    const auto bad = std::count(lines.begin(), lines.end(), "failed");
    if (good + bad > 1)
        return give(result, Verdict::two_verdicts, std::to_string(good + bad) + " words that decide");
    if (outcome.dropped)
        return give(result, Verdict::no_verdict,
                    "its output is endless: " + std::to_string(outcome.dropped) +
                        " bytes beyond what is kept");
    if (outcome.status > kSignalBase && outcome.status < kSignalBase + kSignals)
        return give(result, Verdict::no_verdict,
                    "signal " + std::to_string(outcome.status - kSignalBase) + " ended it");
    if (good) return give(result, Verdict::passed);
    if (bad) return give(result, Verdict::failed, why_failed(test, outcome, lines));
    const std::string said = last_line(outcome.err.empty() ? outcome.out : outcome.err);
    give(result, Verdict::no_verdict, said.empty() ? "exit status " + std::to_string(outcome.status) : said);
}

void judge_lines(const Test& test, const Outcome& outcome, Result& result)
{
    const Words lines = lines_of(outcome.out);
    for (const std::string& pattern : test.lines)
        if (std::none_of(lines.begin(), lines.end(), [&](const std::string& line) {
                return fnmatch(pattern.c_str(), line.c_str(), 0) == 0;
            }))
            return give(result, Verdict::failed, "no line is " + pattern);
    give(result, Verdict::passed);
}

struct Ending {
    Outcome::Kind kind;
    Verdict verdict;
    const char* reason; // where the target gives none
};
constexpr Ending kEndings[] = {
    {Outcome::hung, Verdict::hung, "it did not end within its limit"},
    {Outcome::interrupted, Verdict::interrupted, "by the operator"},
    {Outcome::reset, Verdict::reset, "the board restarted"},
    {Outcome::lost, Verdict::lost, "the board does not answer"},
    {Outcome::garbled, Verdict::garbled, "the text is damaged"},
};

} // namespace

bool has_word(const Outcome& outcome, const char* word)
{
    const Words lines = lines_of(outcome.out);
    return std::find(lines.begin(), lines.end(), word) != lines.end();
}

void judge(const Test& test, const Outcome& outcome, Result& result)
{
    result.text = harmless(outcome.out);
    if (!outcome.err.empty() && !result.text.empty() && result.text.back() != '\n') result.text += '\n';
    result.text += harmless(outcome.err);
    for (const Ending& ending : kEndings)
        if (outcome.kind == ending.kind)
            return give(result, ending.verdict, outcome.reason.empty() ? ending.reason : outcome.reason);
    if (test.expect == Test::Expect::verdict) return judge_words(test, outcome, result);
    if (test.expect == Test::Expect::lines) return judge_lines(test, outcome, result);
    give(result, Verdict::passed);
}

} // namespace station
