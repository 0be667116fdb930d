// The course of a line on one board.
#include "tools/station/runner.hpp"

#include "tools/station/target/child.hpp"
#include "tools/station/text.hpp"
#include "tools/station/verdict.hpp"

#include <algorithm>
#include <csignal>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace station {
namespace {

volatile sig_atomic_t signal_came;

void note_signal(int number) { signal_came = number; }

// The program of the PC that tests the board from outside, while the board's own program waits for it.
class Beside {
public:
    explicit Beside(const Words& command) : child_(command) {}

    bool ended()
    {
        while (child_.pending())
            child_.read(0, [&](std::string_view piece, bool is_err) {
                std::string& text = is_err ? said_ : verdict_;
                if (text.size() < kMostText) text += piece;
            });
        return child_.status() >= 0;
    }

    // Its exit status decides, unless the board's program failed it: that one is interrupted once this has ended.
    void judge(const Outcome& outcome, Result& result)
    {
        const bool done = ended();
        const std::string text = said_ + verdict_;
        result.text += harmless(text);
        if (has_word(outcome, "failed")) {
            result.verdict = Verdict::failed;
            result.reason = "the board's own program says so";
            return;
        }
        if (outcome.kind != Outcome::interrupted && outcome.kind != Outcome::ended) return;
        const int status = child_.status();
        result.reason = harmless_line(why(text));
        if (done && status <= 1)
            result.verdict = status == 0 ? Verdict::passed : Verdict::failed;
        else
            result.verdict = Verdict::no_verdict;
        if (result.verdict == Verdict::passed) result.reason.clear();
    }

private:
    // zep-audio marks the values that failed so; what it says first is the reason else.
    static std::string why(const std::string& text)
    {
        const size_t mark = text.find("OUT OF LIMITS");
        return mark == std::string::npos ? text.substr(0, text.find('\n')) : last_line(text.substr(0, mark));
    }

    static constexpr size_t kMostText = 64 << 10;

    Child child_;
    std::string said_, verdict_; // its standard error and output
};

// What goes on beside the test: the screen, the operator's wish to stop.
class Course {
public:
    Course(Target& target, Operator& who, Screen& screen, Report& report)
        : target_(target), who_(who), screen_(screen), report_(report)
    {
    }

    // A test that the station itself cannot do costs neither the report nor the other tests.
    void run(size_t index)
    {
        try {
            run_test(index);
        } catch (const std::exception& e) {
            report_.results[index].verdict = Verdict::no_verdict;
            report_.results[index].reason = harmless_line(e.what());
        }
    }

private:
    void run_test(size_t index)
    {
        Result& result = report_.results[index];
        const Test& test = *result.test;
        if (!prepare(test, result)) return;
        for (int i = 0; i < test.repeat; ++i) {
            run_once(index);
            if (result.verdict != Verdict::passed) return;
        }
        if (test.question.empty()) return;
        result.verdict = Verdict::running;
        screen_.asking(report_);
        who_.ask(result, [] { return !stopped(); });
        if (stopped()) interrupted(result);
    }

    // What a person does before the test, or vcam in their place. False: nobody does it.
    bool prepare(const Test& test, Result& result)
    {
        if (test.before.empty()) return true;
        screen_.asking(report_);
        if (who_.confirm(test.before, [] { return !stopped(); })) return true;
        result.verdict = Verdict::no_answer;
        result.reason = "nobody confirmed: " + test.before;
        if (stopped()) interrupted(result);
        return false;
    }

    static void interrupted(Result& result)
    {
        result.verdict = Verdict::interrupted;
        result.reason = "by the operator";
    }

    void run_once(size_t index)
    {
        Result& result = report_.results[index];
        const Test& test = *result.test;
        bool by_hand = !test.during.empty() && who_.present();
        for (const Words& command : test.hand)
            if (target_.act(command)) by_hand = false;
        const std::string wish = by_hand ? test.during : "";
        std::unique_ptr<Beside> beside;
        if (test.port) beside = std::make_unique<Beside>(target_.beside(test.station, test.port));
        Watch watch;
        watch.tick = [&] {
            screen_.tick(report_, index, wish);
            return !stopped() && !(beside && beside->ended());
        };
        watch.tick();
        const Outcome outcome = target_.run(test.run, {test.limit_s, test.grace_s}, watch);
        ++result.runs;
        result.seconds += outcome.seconds;
        judge(test, outcome, result);
        if (beside && !stopped()) beside->judge(outcome, result);
    }

    Target& target_;
    Operator& who_;
    Screen& screen_;
    Report& report_;
};

// A board that is gone, and one whose next test would say nothing.
const char* reason_to_end(const Result& result)
{
    if (stopped()) return "the operator ended the line";
    if (result.verdict == Verdict::lost) return "the target was lost";
    if (result.test->needed && result.verdict != Verdict::passed) return "an earlier test is needed";
    return nullptr;
}

void skip_rest(Report& report, size_t from, const char* reason)
{
    for (size_t i = from; i < report.results.size(); ++i) {
        if (report.results[i].verdict == Verdict::not_tested) continue;
        report.results[i].verdict = Verdict::not_tested;
        report.results[i].reason = reason;
    }
}

// Those that --only leaves out stay in the report: a board has not passed by a part of its line.
void list_tests(const ProductionLine& line, const Words& only, Report& report)
{
    for (const Test& test : line.tests) {
        if (!test.models.empty() && !fits(test.models, report.board.model)) continue;
        Result& result = report.results.emplace_back();
        result.test = &test;
        if (only.empty() || std::find(only.begin(), only.end(), test.name) != only.end()) continue;
        result.verdict = Verdict::not_tested;
        result.reason = "not named by --only";
    }
}

// The value behind the first line that begins with the word.
std::string value_of(const std::string& text, const std::string& word)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(word, 0) == 0) return harmless_line(line.substr(word.size()), 80);
    return "";
}

// One command, so that a slow console is asked once. The first line of zep's listing has its version.
constexpr const char* kIdentify = "f=/tmp/.zep-station; get_boot_param $f >/dev/null; cat $f; rm -f $f; "
                                  "grep cam_model= /etc/cam_model.conf; zep | head -n 1";

} // namespace

void stop_on_signals()
{
    struct sigaction action = {};
    action.sa_handler = note_signal;
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool stopped() { return signal_came != 0; }

Board identify(Target& target)
{
    Watch watch;
    watch.tick = [] { return !stopped(); };
    const Outcome said = target.run({"sh", "-c", kIdentify}, {.seconds = 30}, watch);
    if (said.kind != Outcome::ended)
        throw std::runtime_error("the board does not say what it is: " +
                                 (said.reason.empty() ? "no answer within 30 s" : said.reason));
    const std::string version = value_of(said.out, "ZEP ver. ");
    return {value_of(said.out, "MAC="),
            value_of(said.out, "SERIAL_NO="),
            value_of(said.out, "PRODUCT_CODE="),
            value_of(said.out, "cam_model="),
            version.substr(0, version.find(" multi-call")),
            harmless_line(last_line(said.err))};
}

void run_line(const ProductionLine& line, const Words& only, Target& target, Operator& who, Screen& screen,
              Report& report, const std::function<bool()>& keep)
{
    const auto begin = Clock::now();
    list_tests(line, only, report);
    screen.begin(report);
    Course course(target, who, screen, report);
    const char* reason = nullptr;
    bool kept = true;
    for (size_t i = 0; i < report.results.size() && !reason; ++i) {
        Result& result = report.results[i];
        if (result.verdict == Verdict::waiting) {
            result.verdict = Verdict::running;
            report.seconds = seconds_since(begin);
            kept = keep();
            if (kept)
                course.run(i);
            else
                reason = "the log cannot be written";
            if (!reason) reason = reason_to_end(result);
        }
        if (reason) skip_rest(report, result.verdict == Verdict::running ? i : i + 1, reason);
        report.seconds = seconds_since(begin);
        screen.settled(report, i);
    }
    report.finished = !stopped() && kept;
    screen.end(report);
}

} // namespace station
