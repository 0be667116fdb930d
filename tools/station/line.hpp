// The line file: what a line tests.
#pragma once

#include "tools/station/target/target.hpp"

#include <string>
#include <vector>

namespace station {

struct Test {
    enum class Expect {
        verdict, // one of the words "successful" and "failed", alone in a line
        lines,   // a line for each pattern
        end,     // nothing but its end
    };
    int row = 0; // of the file
    std::string name;
    Words run;     // on the board
    Words station; // on the PC beside it: its exit status decides
    int port = 0;  // of the board, for the program of the PC
    Expect expect = Expect::verdict;
    Words lines;    // shell patterns
    int repeat = 1; // how often it must pass
    double limit_s = 60, grace_s = 10;
    Words models;                 // shell patterns; empty: every model
    bool needed = false;          // nothing follows unless it passes
    std::string before, during;   // what an operator does
    std::string question, answer; // what an operator is asked afterwards, and the answer that passes
    std::vector<Words> hand;      // commands of vcam in the place of an operator's hand
};

struct ProductionLine {
    std::string path, name;
    Words models;
    std::vector<Test> tests;
};

// Throws std::runtime_error with file, row, what is wrong and what there is.
ProductionLine read_line(const std::string& path);
// The same of a file's text; the path is for messages.
ProductionLine parse_line(const std::string& path, std::string_view text);

// A file's path, or the name of one that came with the program; "" finds the one for the model. Throws.
ProductionLine find_line(const std::string& name, const std::string& model);
// The names of those that came with the program, in order.
Words line_names();

// Whether one of the shell patterns fits the whole word.
bool fits(const Words& patterns, const std::string& word);

} // namespace station
