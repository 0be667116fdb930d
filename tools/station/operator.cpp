// The person at the line.
#include "tools/station/operator.hpp"

#include "tools/station/text.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

namespace station {
namespace {

constexpr size_t kLongestAnswer = 4096;

std::string trimmed(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

void judge_answer(Result& result, const std::string& answer, const char* by)
{
    result.answer = harmless_line(trimmed(answer));
    result.answered_by = by;
    const bool right = strcasecmp(result.answer.c_str(), result.test->answer.c_str()) == 0;
    result.verdict = right ? Verdict::passed : Verdict::wrong_answer;
    if (right) return;
    result.reason =
        "\"" + result.answer + "\", not \"" + result.test->answer + "\": " + result.test->question;
}

} // namespace

void Operator::read_answers(const std::string& path)
{
    std::ifstream file(path);
    if (!file || std::filesystem::is_directory(path)) throw std::runtime_error(path + ": cannot be read");
    int row = 0;
    for (std::string line; std::getline(file, line);) {
        ++row;
        const size_t equal = line.find('=');
        if (trimmed(line).empty() || trimmed(line)[0] == '#') continue;
        if (equal == std::string::npos)
            throw std::runtime_error(path + ":" + std::to_string(row) +
                                     ": write it as NAME OF THE TEST = ANSWER");
        answers_[trimmed(line.substr(0, equal))] = trimmed(line.substr(equal + 1));
    }
    from_file_ = true;
}

void Operator::check_answers(const ProductionLine& line) const
{
    for (const auto& [name, answer] : answers_)
        if (std::none_of(line.tests.begin(), line.tests.end(),
                         [&](const Test& test) { return test.name == name && !test.question.empty(); }))
            throw std::runtime_error("--answers: \"" + name + "\" is no test of the line that asks");
}

bool Operator::read_line(std::string& line, const std::function<bool()>& go_on)
{
    for (;;) {
        const size_t end = typed_.find('\n');
        if (end != std::string::npos || typed_.size() > kLongestAnswer) {
            line = typed_.substr(0, end);
            typed_.erase(0, end == std::string::npos ? end : end + 1);
            return true;
        }
        if (!go_on()) return false;
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, 100) <= 0) continue;
        char bytes[512];
        const ssize_t n = read(STDIN_FILENO, bytes, sizeof bytes);
        if (n == 0) return false;
        if (n > 0) typed_.append(bytes, size_t(n));
    }
}

// What was typed before a question is no answer to it.
void Operator::forget_typed()
{
    if (!isatty(STDIN_FILENO)) return;
    tcflush(STDIN_FILENO, TCIFLUSH);
    typed_.clear();
}

bool Operator::confirm(const std::string& text, const std::function<bool()>& go_on)
{
    if (!present()) return true;
    forget_typed();
    printf("%s Then press Enter. ", text.c_str());
    fflush(stdout);
    std::string line;
    const bool done = read_line(line, go_on);
    if (!done || !isatty(STDIN_FILENO)) puts("");
    return done;
}

void Operator::ask(Result& result, const std::function<bool()>& go_on)
{
    const Test& test = *result.test;
    const auto answer = answers_.find(test.name);
    if (yes_) return judge_answer(result, test.answer, "--yes");
    if (answer != answers_.end()) return judge_answer(result, answer->second, "file");
    std::string line;
    if (!from_file_) {
        forget_typed();
        printf("%s ", test.question.c_str());
        fflush(stdout);
        const bool answered = read_line(line, go_on);
        if (!answered || !isatty(STDIN_FILENO)) puts("");
        if (answered) return judge_answer(result, line, "operator");
    }
    result.verdict = Verdict::no_answer;
    result.reason = "nobody answered: " + test.question;
}

} // namespace station
