// Applets on the virtual camera: what each prints, logs and asks of shell, drivers and processes.
//
// NAME.transcript is the test camera_NAME. Its lines:
//   # text              a comment
//   == Sentence         a case, with a camera of its own
//   new: OPTIONS        of vcam new; $EXAMPLES is the folder of the examples' programs
//   run: OPTIONS        of vcam run
//   sh: LINE            shell's text before each command of the case; before the first case, of all cases
//   vcam: COMMAND ...   a vcam command on this camera, whose folder is $CAMERA, quoted as for the shell
//   faults: LINE;LINE   the fault plan from here on
//   package: PATH       a firmware package that the camera takes
//   machine: no REASON  the emulated machine, which runs some transcripts with its own devices, leaves the case out
//   $ LINE              a command, given to the camera's shell in a boot of its own
//   > LINE              its next line
//   @SOURCE text        an entry of the journal's SOURCE, of log, err, ending or status; @SOURCE alone: none
//   text                standard output
// Standard error and status are empty and 0 unless a transcript says otherwise. "..." stands for anything, within a
// line or as a line of its own. An empty line of output is \n, control characters are \e, \r and \xHH, a space at a
// line's end is \s; \c is an output without an end of line. The tests' own programs are in /run/bin/camera, the
// examples of the manual pages in /run/bin/examples.
//
// camera_transcripts FILE runs one; --to-machine FOLDER FILE... and --from-machine FOLDER OUT FILE... lay cameras and
// commands into a folder for the machine and compare what it has sent back.
#include "tests/camera/on_machine.hpp"
#include "tests/support/transcript.hpp"

#include <cstdlib>
#include <iostream>
#include <stdexcept>

namespace {

std::string file; // the first argument

// The text before each command, and the transcript that is read.
struct Reader {
    std::string all, own;
    std::vector<Transcript> cases;

    void line(std::string line)
    {
        if (line.empty() || line[0] == '#') return;
        if (take(line, "== ")) return begin(line);
        if (take(line, "sh: ")) {
            (cases.empty() ? all : own) += line + "\n";
            return;
        }
        if (cases.empty()) throw std::runtime_error(line);
        Transcript& current = cases.back();
        if (take(line, "new: ")) {
            const size_t at = line.find("$EXAMPLES");
            if (at != line.npos) line.replace(at, sizeof "$EXAMPLES" - 1, EXAMPLES);
            return append(current.camera_options, words_of(line));
        }
        if (take(line, "machine: no ")) return void(current.not_on_machine = line);
        if (take(line, "run: ")) return append(current.run_options, words_of(line));
        if (line.starts_with("vcam: ") || line.starts_with("faults:") || line.starts_with("package: "))
            return before.push_back(line);
        if (take(line, "$ ")) {
            current.steps.push_back({std::exchange(before, {}), all + own + line, {}});
            return;
        }
        if (current.steps.empty()) throw std::runtime_error(line);
        Step& step = current.steps.back();
        if (take(line, "> "))
            step.command += "\n" + line;
        else if (take(line, "@"))
            expect(step, line);
        else
            step.expected["out"].push_back(line);
    }

private:
    static void append(Lines& to, const Lines& more) { to.insert(to.end(), more.begin(), more.end()); }
    static void expect(Step& step, const std::string& line)
    {
        const size_t space = line.find(' ');
        Lines& lines = step.expected[line.substr(0, space)];
        if (space != std::string::npos) lines.push_back(line.substr(space + 1));
    }
    void begin(const std::string& name)
    {
        own.clear();
        cases.push_back({name, {}, {"--bind", TEST_PROGRAMS, "--bind", EXAMPLES}, {}, {}});
    }

    Lines before;
};

std::vector<Transcript> read_transcripts(const std::string& path)
{
    Reader reader;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) reader.line(line);
    if (!reader.cases.empty()) return reader.cases;
    std::cerr << path << ": no case\n";
    exit(2);
}

std::vector<Transcript> read_all(const Lines& paths)
{
    std::vector<Transcript> all;
    for (const std::string& path : paths)
        for (Transcript& one : read_transcripts(path)) {
            one.name = fs::path(path).stem().string() + ": " + one.name;
            all.push_back(std::move(one));
        }
    return all;
}

class Applet : public testing::TestWithParam<Transcript> {};

} // namespace

TEST_P(Applet, DoesWhatTheTranscriptShows)
{
    ASSERT_FALSE(GetParam().steps.empty());
    run(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Transcript, Applet, testing::ValuesIn(read_transcripts(file)),
                         [](const auto& transcript) {
                             std::string name;
                             for (const char c : transcript.param.name) name += isalnum(c) ? c : '_';
                             return name;
                         });

int main(int argc, char** argv)
{
    const Lines words(argv + std::min(argc, 1), argv + argc);
    if (words.size() > 2 && words[0] == "--to-machine")
        return on_machine::prepare(read_all({words.begin() + 2, words.end()}), words[1]);
    if (words.size() > 3 && words[0] == "--from-machine")
        return on_machine::judge(read_all({words.begin() + 3, words.end()}), words[1], words[2]);
    if (argc > 1) file = argv[1];
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
