// The person at the line: what they are asked and what they answer.
#pragma once

#include "tools/station/report/report.hpp"

#include <functional>
#include <map>

namespace station {

class Operator {
public:
    // From the terminal, or lines of a pipe.
    Operator() = default;
    // Nobody is there: everything is done and seen as it should be.
    void say_yes() { yes_ = true; }
    // Answers by the name of the test, "NAME = ANSWER" a line; nobody is asked to do anything. Throws.
    void read_answers(const std::string& path);

    // Throws for an answer to a test that the line does not have.
    void check_answers(const ProductionLine& line) const;

    // Whether somebody reads what is asked.
    [[nodiscard]] bool present() const { return !yes_ && !from_file_; }
    // Waits for the Enter key. False when the input is at its end or go_on says so.
    bool confirm(const std::string& text, const std::function<bool()>& go_on);
    // Asks the test's question and judges the answer.
    void ask(Result& result, const std::function<bool()>& go_on);

private:
    void forget_typed();
    bool read_line(std::string& line, const std::function<bool()>& go_on);

    bool yes_ = false, from_file_ = false;
    std::map<std::string, std::string> answers_;
    std::string typed_; // read, not yet taken
};

} // namespace station
