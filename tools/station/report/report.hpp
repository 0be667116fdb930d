// What a line has found on a board, and its forms.
#pragma once

#include "tools/cli/json.hpp"
#include "tools/station/line.hpp"

#include <ctime>

namespace station {

// Told apart by name: each calls for something else at the line.
enum class Verdict {
    waiting, // for its turn
    running,
    passed,
    failed,
    wrong_answer, // the operator saw something else
    no_answer,
    no_verdict,   // it ended without a word that decides
    two_verdicts, // and with more than one
    hung,
    interrupted, // by the operator
    reset,       // the board restarted meanwhile
    garbled,     // on the way to the station
    lost,        // the way to the board, or the board
    not_tested,
};
const char* word_of(Verdict verdict); // "no verdict"
bool judged_bad(Verdict verdict);     // the board was tested to an end and is not good
bool settled(Verdict verdict);        // neither waiting nor running

// Texts are harmless() already.
struct Result {
    const Test* test = nullptr;
    Verdict verdict = Verdict::waiting;
    std::string reason;      // one line; empty when it passed
    double seconds = 0;      // of the test, without the operator's time
    int runs = 0;            // of its repeats
    std::string text;        // what it printed in its last run
    std::string answer;      // the operator's
    std::string answered_by; // "operator", "file" or "--yes"
};

struct Board {
    std::string mac, serial, product, model, firmware;
    std::string complaint = {}; // what it said on its standard error when it was asked
};

struct Report {
    std::string id, target, line;
    Board board;
    time_t begun = 0;
    double seconds = 0;
    std::vector<Result> results;
    bool finished = false;

    [[nodiscard]] bool passed() const; // every test of the line, and there was one
    [[nodiscard]] size_t count(Verdict verdict) const;
};

std::string utc(time_t time); // "2026-11-22T13:40:00Z"

cli::Json report_json(const Report& report, bool with_text);
std::string report_junit(const Report& report, bool with_text);
std::string report_html(const Report& report, bool with_text);

} // namespace station
