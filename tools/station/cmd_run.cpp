// zep-station run: a line on a board, its reports and its log.
#include "tools/station/report/board_log.hpp"
#include "tools/station/commands.hpp"
#include "tools/station/screen.hpp"
#include "tools/station/text.hpp"

#include "tools/cli/output_file.hpp"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <unistd.h>

namespace station {
namespace {

struct Options {
    Access access;
    std::string line, log, answers;
    std::string outputs[3]; // by kForms
    Words only;
    bool yes = false, verbose = false, force = false;
};

std::string json_text(const Report& report, bool with_text)
{
    return report_json(report, with_text).dump(2, ' ', false, cli::Json::error_handler_t::replace) + "\n";
}

struct Form {
    const char* option;
    const char* help;
    std::string (*make)(const Report&, bool with_text);
};
constexpr Form kForms[] = {
    {"--json", "the report for programs; - is standard output", json_text},
    {"--junit", "the same as JUnit XML", report_junit},
    {"--html", "the same as a page to print", report_html},
};

cli::Syntax syntax(Options& o)
{
    cli::Syntax s;
    s.operands = {{"TARGET", cli::Operand::text}};
    s.rest = "VCAM-RUN-OPTION...";
    s.options = {
        {"--line", "LINE", "a line file, or the name of one that came with the program (the model's)",
         [&](auto& v) { o.line = cli::given(v); }},
        {"--only", "TEST",
         "run this test of the line alone, which does not make the board pass; may be given again",
         [&](auto& v) { o.only.push_back(cli::given(v)); }},
        {"--yes", nullptr, "nobody is asked: all is done and seen as it should be",
         [&](auto&) { o.yes = true; }},
        {"--answers", "FILE", "nobody is asked: answers as TEST = ANSWER, one a line",
         [&](auto& v) { o.answers = cli::given(v); }},
    };
    s.options.push_back({"--user", "NAME", "who logs in on the board (root)",
                         [&](auto& v) { o.access.user = cli::given(v); }});
    s.options.push_back({"--password-file", "FILE", "the login's password, in the file's first line",
                         [&](auto& v) { o.access.password_file = cli::given(v); }});
    s.options.push_back({"--connect", "SECONDS", "for a connection, and for a prompt on it (10)",
                         [&](auto& v) { o.access.connect_s = cli::number(v, 1, 3600); }});
    for (size_t i = 0; i < std::size(kForms); ++i)
        s.options.push_back(
            {kForms[i].option, "FILE", kForms[i].help, [&o, i](auto& v) { o.outputs[i] = cli::given(v); }});
    s.options.push_back(
        {"--log", "FILE", "append one line of JSON to this file", [&](auto& v) { o.log = cli::given(v); }});
    s.options.push_back(
        {"--force", nullptr, "replace files that are no reports", [&](auto&) { o.force = true; }});
    s.options.push_back({"-v", nullptr, "show what each test printed, and put it into the reports",
                         [&](auto&) { o.verbose = true; }});
    return s;
}

// Whether a file that stands there is a report of this program.
bool is_report(int fd, off_t)
{
    char head[256] = "";
    const ssize_t n = pread(fd, head, sizeof head - 1, 0);
    return n > 0 && memmem(head, size_t(n), "zep-station", 11);
}

struct Output {
    const Form* form;
    std::unique_ptr<cli::OutputFile> file;
};

// Each would replace the one before.
void refuse_same(const Words& paths)
{
    std::set<std::filesystem::path> seen;
    std::error_code error;
    for (const std::string& path : paths)
        if (!path.empty() &&
            !seen.insert(std::filesystem::weakly_canonical(std::filesystem::absolute(path), error)).second)
            throw cli::WrongUse(path + ": is named for two outputs; give each a file of its own");
}

std::vector<Output> open_outputs(const Options& o)
{
    std::vector<Output> outputs;
    refuse_same({o.outputs[0], o.outputs[1], o.outputs[2], o.log});
    cli::OutputRule rule;
    rule.kind = "a report of zep-station";
    rule.is_kind = is_report;
    rule.force = o.force;
    for (size_t i = 0; i < std::size(kForms); ++i)
        if (!o.outputs[i].empty())
            outputs.push_back(
                {&kForms[i],
                 std::make_unique<cli::OutputFile>(
                     o.outputs[i], rule, cli::Arguments{o.line, o.answers, o.log, o.access.password_file})});
    return outputs;
}

std::string new_id(time_t now)
{
    tm parts{};
    gmtime_r(&now, &parts);
    char text[64];
    std::random_device random;
    const size_t n = strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    snprintf(text + n, sizeof text - n, "-%08x", random());
    return text;
}

// Tests for a model on a board that is another one, or does not say what it is, would show faults that are none.
void check_model(const ProductionLine& line, const std::string& model)
{
    const std::string is = model.empty() ? "the board does not say its model" : "the board is a " + model;
    if (!line.models.empty() && !fits(line.models, model))
        throw std::runtime_error(line.path + ": is for other models: " + is);
    if (model.empty() &&
        std::any_of(line.tests.begin(), line.tests.end(), [](auto& t) { return !t.models.empty(); }))
        throw std::runtime_error(line.path + ": has tests for some models: " + is);
}

void check_only(const ProductionLine& line, const Words& only)
{
    std::string list;
    for (const Test& test : line.tests) list += (list.empty() ? "" : ", ") + test.name;
    for (const std::string& name : only)
        if (std::none_of(line.tests.begin(), line.tests.end(),
                         [&](const Test& test) { return test.name == name; }))
            throw cli::WrongUse("--only " + name + ": the line has no such test; it has " + list);
}

Report begin_report(Target& target, const std::string& name)
{
    Watch watch;
    watch.tick = [] { return !stopped(); };
    Report report;
    report.target = harmless_line(name);
    report.begun = time(nullptr);
    report.id = new_id(report.begun);
    try {
        target.begin(watch);
        report.board = identify(target);
    } catch (const std::exception&) {
        if (stopped()) throw std::runtime_error("ended by the operator; nothing was tested");
        throw;
    }
    return report;
}

// The one that the board's model has, unless it is named; it must be for the board.
void settle_line(ProductionLine& line, const Options& o, const Board& board, const Operator& who)
{
    if (o.line.empty() && board.model.empty())
        throw std::runtime_error("the board does not say its model" +
                                 (board.complaint.empty() ? "" : " (" + board.complaint + ")") +
                                 "; name a line with --line");
    if (o.line.empty()) line = find_line("", board.model);
    check_only(line, o.only);
    check_model(line, board.model);
    who.check_answers(line);
}

// A log that fails ends the line, but costs no report.
struct Log {
    std::unique_ptr<BoardLog> file; // none where none is wanted
    std::string failure;

    bool keep(void (BoardLog::*work)(const Report&), const Report& report)
    {
        try {
            if (file && failure.empty()) (*file.*work)(report);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        return failure.empty();
    }
};

void write(const std::vector<Output>& outputs, const Report& report, bool with_text)
{
    for (const Output& output : outputs) {
        output.file->write(output.form->make(report, with_text));
        output.file->commit();
    }
}

} // namespace

int run(const cli::Arguments& arguments)
{
    Options o;
    const cli::Words words = cli::parse(arguments, syntax(o));
    if (o.yes && !o.answers.empty()) throw cli::WrongUse("--yes and --answers: choose one");
    o.access.start_options = words.rest;
    const auto target = make_target(words.plain[0], o.access);
    Operator who;
    if (o.yes) who.say_yes();
    if (!o.answers.empty()) who.read_answers(o.answers);
    // What is wrong with a name is found before the board is touched.
    ProductionLine line;
    if (!o.line.empty()) line = find_line(o.line, "");
    const std::vector<Output> outputs = open_outputs(o);
    Log log;
    if (!o.log.empty()) log.file = std::make_unique<BoardLog>(o.log);
    bool taken = false;
    for (const Output& output : outputs) taken |= output.file->is_stdout();
    const auto screen = taken ? no_screen() : make_screen(o.verbose);

    stop_on_signals();
    Report report = begin_report(*target, words.plain[0]);
    settle_line(line, o, report.board, who);
    report.line = line.name;
    run_line(line, o.only, *target, who, *screen, report, [&] { return log.keep(&BoardLog::note, report); });
    log.keep(&BoardLog::finish, report);
    write(outputs, report, o.verbose);
    if (!log.failure.empty()) throw std::runtime_error(log.failure);
    return report.passed() ? kPassed : kNotPassed;
}

} // namespace station
