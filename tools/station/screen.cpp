// The course of a line in the terminal, or as lines in a pipe.
#include "tools/station/screen.hpp"

#include "tools/cli/command_line.hpp"
#include "tools/station/target/child.hpp"
#include "tools/station/text.hpp"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace station {
namespace {

constexpr size_t kNameColumns = 28, kWordColumns = 13;

// What tells boards apart first: a terminal may be narrow.
std::string heading(const Report& report)
{
    const Board& b = report.board;
    std::string text;
    for (const std::string& part : {b.serial, b.mac, b.model})
        if (!part.empty()) text += part + "  ";
    return text + report.line + " on " + report.target + "  " + b.firmware;
}

std::string summary(const Report& report)
{
    std::string text = report.passed() ? "passed: " : report.finished ? "not passed: " : "broken off: ";
    text += std::to_string(report.count(Verdict::passed)) + " of " + std::to_string(report.results.size()) +
            " tests";
    return text + " in " + seconds_text(report.seconds) + " s";
}

cli::Style style_of(Verdict verdict)
{
    if (verdict == Verdict::running) return cli::Style::strong;
    return verdict == Verdict::passed ? cli::Style::good : cli::Style::bad;
}

constexpr double kYourTurn = -1; // seconds of a test that waits for the operator

// "  3 RS-485      passed      12.3 s  why", cut to the columns.
std::string result_line(size_t number, const Result& result, double running_s, size_t columns)
{
    const bool running = result.verdict == Verdict::running;
    char head[16];
    snprintf(head, sizeof head, "%3zu ", number);
    const std::string name = head + clipped(result.test->name, kNameColumns, kNameColumns) + " ";
    const std::string word = running && running_s < 0 ? "your turn" : word_of(result.verdict);
    std::string rest;
    if ((running && running_s >= 0) || (!running && result.runs)) {
        rest = seconds_text(running ? running_s : result.seconds) + " s";
        if (result.test->repeat > 1)
            rest += ", " + std::to_string(result.runs) + " of " + std::to_string(result.test->repeat);
        rest.insert(0, rest.size() < 9 ? 9 - rest.size() : 1, ' ');
    }
    if (!result.reason.empty()) rest += "  " + result.reason;
    const size_t begin = 4 + kNameColumns + 1, end = begin + kWordColumns;
    if (columns < end) return clipped(name + word, columns);
    std::string shown = clipped(word, kWordColumns, kWordColumns);
    if (result.verdict != Verdict::waiting)
        shown = cli::paint(STDOUT_FILENO, style_of(result.verdict), shown);
    return name + shown + clipped(rest, columns - end);
}

std::string indented(const std::string& text)
{
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        out += "      " + text.substr(at, end - at) + "\n";
        at = end + 1;
    }
    return out;
}

class Lines : public Screen {
public:
    explicit Lines(bool verbose) : verbose_(verbose) {}
    void begin(const Report& report) override { print(heading(report)); }
    void tick(const Report&, size_t, const std::string& wish) override
    {
        if (!wish.empty() && wish != wish_) print(wish);
        wish_ = wish;
    }
    void settled(const Report& report, size_t index) override
    {
        wish_.clear();
        print(result_line(index + 1, report.results[index], 0, SIZE_MAX));
        if (verbose_) fputs(indented(report.results[index].text).c_str(), stdout);
        shown_ = index + 1;
    }
    void end(const Report& report) override
    {
        for (; shown_ < report.results.size(); ++shown_)
            print(result_line(shown_ + 1, report.results[shown_], 0, SIZE_MAX));
        print(summary(report));
    }

private:
    static void print(const std::string& line)
    {
        puts(line.c_str());
        fflush(stdout);
    }

    const bool verbose_;
    std::string wish_;
    size_t shown_ = 0;
};

// The last frame stays on the terminal.
class Table : public Screen {
public:
    explicit Table(bool verbose) : verbose_(verbose) {}
    void begin(const Report& report) override { draw(report, report.results.size(), ""); }
    void tick(const Report& report, size_t index, const std::string& wish) override
    {
        if (index != running_) {
            running_ = index;
            since_ = Clock::now();
        }
        draw(report, index, wish);
    }
    void settled(const Report& report, size_t index) override
    {
        running_ = SIZE_MAX;
        draw(report, index, "");
    }
    // What is typed would move the table: it is left behind and drawn anew below.
    void asking(const Report& report) override
    {
        asking_ = true;
        draw(report, report.results.size(), "");
        asking_ = false;
        drawn_ = 0;
    }
    void end(const Report& report) override
    {
        draw(report, report.results.size(), "", true);
        if (!verbose_) return;
        for (const Result& result : report.results)
            if (!result.text.empty())
                printf("\n%s\n%s", result.test->name.c_str(), indented(result.text).c_str());
    }

private:
    void draw(const Report& report, size_t index, const std::string& wish, bool whole = false)
    {
        winsize size = {};
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) < 0 || size.ws_col < 20 || size.ws_row < 6)
            size = {24, 80, 0, 0};
        const size_t columns = size.ws_col - 1u, rows = size.ws_row - 4u, count = report.results.size();
        // The part of the table around the test that runs, where the terminal is lower than the table.
        const size_t last =
            whole ? count : std::min(count, std::max(rows, std::min(index, count) + rows / 2));
        const size_t first = whole || last <= rows ? 0 : last - rows;
        std::string out = drawn_ ? "\r\033[" + std::to_string(drawn_) + "A" : "";
        const auto line = [&](const std::string& text) { out += text + "\033[K\n"; };
        line(cli::paint(STDOUT_FILENO, cli::Style::strong, clipped(heading(report), columns)));
        for (size_t i = first; i < last; ++i)
            line(result_line(i + 1, report.results[i], asking_ ? kYourTurn : seconds_since(since_), columns));
        line(whole ? cli::paint(STDOUT_FILENO, report.passed() ? cli::Style::good : cli::Style::bad,
                                clipped(summary(report), columns))
                   : clipped(progress(report), columns));
        if (!whole) line(cli::paint(STDOUT_FILENO, cli::Style::strong, clipped(wish, columns)));
        out += "\033[J";
        drawn_ = last - first + 3;
        fputs(out.c_str(), stdout);
        fflush(stdout);
    }

    [[nodiscard]] std::string progress(const Report& report) const
    {
        const auto done = size_t(std::count_if(report.results.begin(), report.results.end(),
                                               [](auto& r) { return settled_verdict(r.verdict); }));
        const size_t total = std::max<size_t>(report.results.size(), 1), width = 30;
        std::string bar(done * width / total, '#');
        bar.resize(width, '.');
        return "[" + bar + "] " + std::to_string(done) + " of " + std::to_string(report.results.size()) +
               ", " + seconds_text(seconds_since(begun_)) + " s";
    }
    static bool settled_verdict(Verdict verdict) { return station::settled(verdict); }

    const bool verbose_;
    const Clock::time_point begun_ = Clock::now();
    Clock::time_point since_ = begun_;
    size_t running_ = SIZE_MAX;
    bool asking_ = false;
    size_t drawn_ = 0; // lines of the frame above the cursor
};

class NoScreen : public Screen {};

} // namespace

std::unique_ptr<Screen> make_screen(bool verbose)
{
    if (isatty(STDOUT_FILENO)) return std::make_unique<Table>(verbose);
    return std::make_unique<Lines>(verbose);
}

std::unique_ptr<Screen> no_screen() { return std::make_unique<NoScreen>(); }

} // namespace station
