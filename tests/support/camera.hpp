// A virtual camera for one test: made in a folder of its own, gone with the test.
#pragma once

#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"

#include <sstream>
#include <vector>

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

inline std::string vcam_program = VCAM; // that the tests start

// The vcam command itself, for the tests that look at what it says.
inline Said vcam(const std::string& arguments) { return say(vcam_program + " " + arguments + " 2>&1"); }

// What one start of the camera left.
struct Outcome {
    int status = -1;
    std::string out, err;
    std::string ending; // "exit 0", "reboot", ...
    Lines journal;      // "source text"
    Lines log;          // system log: "priority ident: text"

    // The journal's entries of one source, without its name.
    [[nodiscard]] Lines of(const std::string& source) const
    {
        Lines found;
        for (const std::string& line : journal)
            if (line.rfind(source + " ", 0) == 0) found.push_back(line.substr(source.size() + 1));
        return found;
    }
};

class Camera {
public:
    explicit Camera(const Lines& options = {})
    {
        Lines command = {vcam_program, "new", folder_ / "camera"};
        command.insert(command.end(), options.begin(), options.end());
        EXPECT_EQ(spawn(command), 0) << read_file(folder_ / "err");
    }

    // Runs a command in the camera; options are those of vcam run.
    Outcome run(const Lines& command, const Lines& options = {})
    {
        size_t journal = read_file(state("journal")).size(), log = read_file(state("syslog")).size();
        Lines line = {vcam_program, "run", state("").string(), "--timeout", "1200"};
        line.insert(line.end(), options.begin(), options.end());
        line.emplace_back("--");
        line.insert(line.end(), command.begin(), command.end());
        Outcome result;
        result.status = spawn(line);
        result.out = read_file(folder_ / "out");
        result.err = read_file(folder_ / "err");
        result.ending = read_file(state("ending"));
        while (!result.ending.empty() && result.ending.back() == '\n') result.ending.pop_back();
        result.journal = events(read_file(state("journal")), journal, 2);
        result.log = events(read_file(state("syslog")), log, 1);
        return result;
    }

    // A command line for the camera's shell; its standard output.
    std::string shell(const std::string& line) { return run({"sh", "-c", line}).out; }

    [[nodiscard]] fs::path state(const std::string& name) const
    {
        return fs::path(folder_ / "camera") / name;
    }
    [[nodiscard]] fs::path root(const std::string& path) const { return state("root" + path); }
    [[nodiscard]] std::string flash(int partition) const
    {
        return read_file(state("flash/mtd" + std::to_string(partition)));
    }
    [[nodiscard]] fs::path folder() const { return folder_.path(); } // for the test's own files
    void faults(const std::string& plan) { write_file(state("faults"), plan); }

    // Lines without their first words: time, and in the journal the process number. All of them when a program has
    // cut the file.
    static Lines events(const std::string& text, size_t from, int words)
    {
        Lines found;
        std::istringstream in(from <= text.size() ? text.substr(from) : text);
        for (std::string line; std::getline(in, line);) {
            size_t at = 0;
            for (int i = 0; i < words; ++i) at = line.find(' ', at) + 1;
            found.push_back(line.substr(at));
        }
        return found;
    }

private:
    [[nodiscard]] int spawn(Lines& command) const
    {
        std::vector<char*> words;
        for (std::string& word : command) words.push_back(word.data());
        words.push_back(nullptr);
        std::string out = folder_ / "out", err = folder_ / "err";
        return in_child([&] {
            if (!freopen("/dev/null", "r", stdin) || !freopen(out.c_str(), "w", stdout) ||
                !freopen(err.c_str(), "w", stderr))
                return 126;
            execv(words[0], words.data());
            return 127;
        });
    }

    TempFolder folder_;
};
