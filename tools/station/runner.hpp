// The course of a line on one board.
#pragma once

#include "tools/station/operator.hpp"
#include "tools/station/report/report.hpp"

namespace station {

// Shows the course while it goes on.
class Screen {
public:
    virtual ~Screen() = default;
    Screen() = default;
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    virtual void begin(const Report&) {} // the board is known, nothing tested
    virtual void tick(const Report&, size_t, const std::string&) {
    }                                              // the test that runs, and what the operator does
    virtual void settled(const Report&, size_t) {} // a test has its verdict
    virtual void asking(const Report&) {}          // the operator's answer is typed from now on
    virtual void end(const Report&) {}
};

// SIGINT, SIGTERM and SIGHUP end the line from now on: the program that runs is interrupted, the rest not tested.
void stop_on_signals();
bool stopped();

// What board it is. Empty texts where it does not say. Throws when it does not answer.
Board identify(Target& target);

// Runs the tests that are for the board's model; where `only` names some, the others are not tested. `keep` is called
// before each, so that what is kept of a board names the test at which its station ended; false ends the line. The
// report's head is filled already.
void run_line(const ProductionLine& line, const Words& only, Target& target, Operator& who, Screen& screen,
              Report& report, const std::function<bool()>& keep);

} // namespace station
