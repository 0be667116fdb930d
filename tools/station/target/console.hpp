// A shell on a console: programs and their output over a line that echoes, loses characters and mixes in others.
//
// A program's output goes to the line as it comes and into a file on the board. Behind it the shell writes status and
// checksum. Where they do not fit, the file is asked for again: reading is repeated, a program never is.
#pragma once

#include "tools/station/target/console_text.hpp"
#include "tools/station/terminal.hpp"

namespace station {

constexpr int kTries = 10; // to type a line, and to read what the board answers

class Console final : public Target {
public:
    Console(std::unique_ptr<Wire> wire, std::string name, Access access);
    ~Console() override;
    void begin(const Watch& watch) override { attach(watch); }
    Outcome run(const Words& program, const Limits& limits, const Watch& watch) override;
    Words beside(const Words& program, int port) override;

private:
    // A program that was started and is not known to be over.
    struct Running {
        std::string key;
        const Limits& limits;
        const Watch& watch;
        Outcome& outcome;
        size_t shown = 0; // bytes of the output that the watch has had
        size_t asked = 0; // size of the text when the board was asked whether it restarted
    };

    // console.cpp: the session
    void attach(const Watch& watch); // throws std::runtime_error
    bool set_up();
    bool enter(const std::string& line);
    bool type(const std::string& line);
    bool start(const Words& program, const std::string& key);
    [[nodiscard]] bool at_prompt() const { return terminal_.text().find(prompt_) != std::string::npos; }
    std::optional<Frame> fetch(int tries);

    // console_run.cpp: a program. False of the last four: the outcome is known, and the session is over.
    Outcome execute(const Words& program, const Limits& limits, const Watch& watch);
    bool is_over(Running& running);
    bool restarted(Running& running);
    bool take_result(Running& running); // false: the program was never started
    bool follow(Running& running);
    bool at_limit(Running& running);
    bool interrupt(Running& running, Outcome::Kind kind);
    bool kill_stopped(Running& running);
    void keep_seen(Running& running);
    bool leave(Running& running, Outcome::Kind kind, const std::string& reason);
    void recover(Outcome& outcome, const Watch& watch);

    Terminal terminal_;
    const std::string name_;
    const Access access_;
    const std::string word_ = random_word();
    const std::string prompt_ = "<" + word_ + "> ";
    std::string boot_id_;
    bool attached_ = false, logged_in_ = false;
};

} // namespace station
