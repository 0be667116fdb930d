// Transcripts on the emulated machine.
#include "tests/camera/on_machine.hpp"

#include <algorithm>
#include <iostream>
#include <regex>
#include <set>

namespace on_machine {
namespace {

// What only the sandbox sees: calls that its preload library notes, and how it ends.
const std::set<std::string> kSandboxAlone = {"ending", "exec",         "kill",  "mount",
                                             "reboot", "settimeofday", "umount"};

std::string number(size_t n)
{
    const std::string digits = std::to_string(n);
    return std::string(3 - std::min<size_t>(digits.size(), 3), '0') + digits;
}

std::string quoted(std::string text)
{
    for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4)
        text.replace(at, 1, "'\\''");
    return "'" + text + "'";
}

// A directive as a line for the machine's shell; empty for one that it cannot follow.
std::string directive(std::string line)
{
    if (take(line, "faults:")) {
        std::replace(line.begin(), line.end(), ';', '\n');
        const std::string plan = line.empty() ? "" : line.substr(1) + "\n";
        return "printf %s " + quoted(plan) + " > $CAMERA/faults";
    }
    if (!take(line, "vcam: ")) return {};
    const size_t verb = std::min(line.find(' '), line.size());
    return "vcam " + line.substr(0, verb) + " \"$CAMERA\"" + line.substr(verb);
}

std::string medium(const Lines& run_options)
{
    for (size_t i = 0; i + 1 < run_options.size(); i += 2) {
        std::string words = run_options[i + 1];
        if (run_options[i] != "--medium") continue;
        std::replace(words.begin(), words.end(), '=', ' ');
        return words + "\n";
    }
    return {};
}

// What the machine cannot do; empty: nothing.
std::string beyond(const Transcript& transcript)
{
    for (size_t i = 0; i < transcript.run_options.size(); i += 2)
        if (transcript.run_options[i] != "--medium" && transcript.run_options[i] != "--bind")
            return transcript.run_options[i];
    for (const Step& step : transcript.steps)
        for (const std::string& line : step.before)
            if (directive(line).empty()) return line;
    return {};
}

void lay_camera(const Camera& camera, const fs::path& to)
{
    const Said said = vcam("get " + camera.state("").string() + " /etc " + camera.root("/etc").string());
    EXPECT_EQ(said.status, 0) << said.text;
    for (const char* of_the_sandbox : {"flash", "root/bin", "root/sbin"})
        fs::remove_all(camera.state(of_the_sandbox));
    std::ofstream(camera.state("camera.conf"), std::ios::app) << "memory=/dev/mem\n";
    fs::copy(camera.state(""), to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

void lay(const Transcript& transcript, const fs::path& folder)
{
    fs::create_directories(folder);
    lay_camera(Camera(transcript.camera_options), folder / "camera");
    write_file(folder / "medium", medium(transcript.run_options));
    for (size_t i = 0; i < transcript.steps.size(); ++i) {
        std::string before;
        for (const std::string& line : transcript.steps[i].before)
            before += directive(line) + " || echo " + quoted("failed: " + line) + "\n";
        write_file(folder / (std::to_string(i) + ".before"), before);
        write_file(folder / (std::to_string(i) + ".command"), transcript.steps[i].command + "\n");
    }
}

// Without a word from the program each C library names it in its own way.
Lines without_names(Lines log)
{
    static const std::regex name("^([0-9]+) [^ :]*: ");
    for (std::string& line : log) line = std::regex_replace(line, name, "$1 ");
    return log;
}

struct Came {
    fs::path folder;
    std::string step;
    [[nodiscard]] std::string text(const char* what) const { return read_file(folder / (step + what)); }
    [[nodiscard]] Lines of(const std::string& source) const
    {
        if (source == "out" || source == "err") return lines_of(text(("." + source).c_str()));
        if (source == "status") {
            const std::string status = text(".status");
            return status == "0\n" ? Lines{} : status.empty() ? Lines{"not run"} : lines_of(status);
        }
        size_t journal = 0, log = 0;
        std::istringstream(text(".from")) >> journal >> log;
        if (source == "log") return without_names(Camera::events(text(".syslog"), log, 1));
        Outcome outcome;
        outcome.journal = Camera::events(text(".journal"), journal, 2);
        return outcome.of(source);
    }
};

std::string judge_step(const Step& step, const Came& came)
{
    std::map<std::string, Lines> expected;
    for (const auto& [source, lines] : step.expected)
        if (!kSandboxAlone.contains(source))
            expected[source] = source == "log" ? without_names(lines) : lines;
    for (const char* source : {"out", "err", "status"}) expected[source];
    std::string wrong;
    if (const std::string before = came.text(".before"); before.find("failed: ") != std::string::npos)
        wrong = before;
    return wrong + differences(step, expected, [&](const std::string& source) { return came.of(source); });
}

} // namespace

int prepare(const std::vector<Transcript>& cases, const fs::path& folder)
{
    int failed = 0;
    for (size_t i = 0; i < cases.size(); ++i) {
        if (!cases[i].not_on_machine.empty()) continue;
        if (const std::string what = beyond(cases[i]); !what.empty()) {
            std::cout << cases[i].name << ": not for the machine, which has no \"" << what << "\"\n";
            failed = 1;
            continue;
        }
        lay(cases[i], folder / number(i));
    }
    return failed || testing::UnitTest::GetInstance()->Failed();
}

int judge(const std::vector<Transcript>& cases, const fs::path& folder, const fs::path& out)
{
    size_t run = 0, failed = 0;
    for (size_t i = 0; i < cases.size(); ++i) {
        if (!fs::exists(folder / number(i))) continue;
        ++run;
        std::string wrong;
        for (size_t step = 0; step < cases[i].steps.size(); ++step)
            wrong += judge_step(cases[i].steps[step], {out / number(i), std::to_string(step)});
        if (wrong.empty()) continue;
        std::cout << "== " << cases[i].name << "\n" << wrong;
        ++failed;
    }
    std::cout << run << " cases, " << failed << " failed, " << cases.size() - run << " left out\n";
    for (const Transcript& one : cases)
        if (!one.not_on_machine.empty())
            std::cout << "left out: " << one.name << ": " << one.not_on_machine << "\n";
    return failed != 0 || run == 0;
}

} // namespace on_machine
