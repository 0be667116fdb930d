// Commands for a virtual camera and what they must say, log and ask for.
#pragma once

#include "tests/support/camera.hpp"
#include "tests/support/patterns.hpp"

#include <map>

struct Step {
    Lines before; // directives
    std::string command;
    // By source: out, err, status, ending, log, and each source of the journal. "..." stands for anything, within
    // a line or as a line of its own. Where one of the first three is absent, it must be empty or 0.
    std::map<std::string, Lines> expected;
};

struct Transcript {
    std::string name;
    Lines camera_options, run_options;
    std::vector<Step> steps;
    std::string not_on_machine = {}; // why the emulated machine does not run it

    friend void PrintTo(const Transcript& transcript, std::ostream* out) { *out << transcript.name; }
};

// "text" of a line "prefix text", which is taken off; false for any other line.
inline bool take(std::string& line, const std::string& prefix)
{
    if (!line.starts_with(prefix)) return false;
    line.erase(0, prefix.size());
    return true;
}

// A line of output as a transcript has it: \n for an empty one, control characters as \e, \r and \xHH, a space at the
// end as \s.
std::string shown(const std::string& line);
// The lines of an output; \c stands behind the last one when it lacks its end. A form feed is the end of a line that
// has none.
Lines lines_of(std::string text);
Lines words_of(const std::string& text);

// Runs the steps in a new camera, each as a boot of its own.
void run(const Transcript& transcript);

// What differs between expected and seen, as lines of a transcript; empty: nothing. `seen` gives a source's lines.
std::string differences(const Step& step, const std::map<std::string, Lines>& expected, auto&& seen)
{
    std::string text;
    for (const auto& [source, lines] : expected) {
        const Lines found = seen(source);
        if (matches(lines, found)) continue;
        text += "$ " + step.command + "\ngave as " + source + ":\n";
        for (const std::string& line : found)
            text += (source == "out" ? "" : "@" + source + " ") + line + "\n";
    }
    return text;
}
