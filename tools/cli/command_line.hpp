// The command line of the host tools: commands, options and operands as tables.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

using Arguments = std::vector<std::string>;

// The line was wrong: exit status 2. The text names what was wrong and what would be right.
struct WrongUse : std::runtime_error {
    using std::runtime_error::runtime_error;
};
constexpr int kWrongUse = 2;

// An option. Its value may be refused by an exception of take, whose text says what would be right.
struct Option {
    const char* names;    // "--model" or "-o,--output"
    const char* argument; // "CODE", or null for a switch
    std::string help;
    std::function<void(const std::string&)> take; // once for each use; "" for a switch
    std::string words = {};                       // that a shell offers, when the argument does not list them
};

// A word of the line that is no option. The kind is what a shell completes.
struct Operand {
    enum Kind { text, file, camera, camera_path, program };
    const char* name;
    Kind kind = text;
    bool needed = true;
};

struct Syntax {
    std::vector<Option> options;
    std::vector<Operand> operands;
    const char* rest = nullptr; // "PROGRAM [ARGUMENT]...": all that follows the operands or "--", untouched
    Operand::Kind rest_kind = Operand::text;
    bool rest_needed = false;
    std::vector<std::string> rest_words = {}; // that a shell offers for the rest
};

struct Words {
    Arguments plain; // the operands
    Arguments rest;
};

// --help was asked for.
struct HelpWanted {
    Syntax syntax;
};

// Throws WrongUse or HelpWanted; calls the options' take.
Words parse(const Arguments& arguments, const Syntax& syntax);

struct Command {
    const char* name;
    const char* help;                          // one line
    std::function<int(const Arguments&)> main; // begins with parse(); may throw
    int failure = 1;                           // the exit status of an exception
};

struct Tool {
    const char* name;
    const char* help;
    const char* exit_status; // the lines of the help's end
    std::vector<Command> commands;
};

// A tool's main: finds the command, prints help and errors, returns the exit status.
int run(const Tool& tool, int argc, char** argv);

// The syntax of a command as its own parse() gets it.
Syntax syntax_of(const Command& command);
// The lines of --help, none longer than 80 columns.
std::string help_of(const Tool& tool);
std::string help_of(const Tool& tool, const Command& command, const Syntax& syntax);
// A shell's completion script for the tool; throws WrongUse for an unknown shell.
std::string completion(const Tool& tool, const std::string& shell);

// Values. A whole number is plain decimal or 0x..., nothing may follow it.
int64_t whole_number(const std::string& text, int64_t low, int64_t high);
double number(const std::string& text, double low, double high);
// Throws when the text is empty, as an unset variable of a script is.
const std::string& given(const std::string& text);
// Throws unless the text is one of the words.
const std::string& one_of(const std::string& text, const std::vector<std::string>& words);

// Colour: on a terminal, unless NO_COLOR is set or --color says otherwise.
enum class Style { good, bad, strong };
std::string paint(int fd, Style style, const std::string& text);
void use_color(const std::string& when); // auto, always, never

} // namespace cli
