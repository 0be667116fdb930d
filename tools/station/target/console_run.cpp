// A program on a console: its start, its end, and what else a console shows meanwhile.
#include "tools/station/target/console.hpp"
#include "tools/station/target/console_login.hpp"

#include <algorithm>
#include <poll.h>
#include <stdexcept>

namespace station {
namespace {

constexpr int kReadings = 5;
constexpr double kQuiet = 1; // then a login prompt stands at the end of the text
constexpr const char* kRestarted = "the board restarted meanwhile";
constexpr size_t kMostBytes = 1 << 20; // of an output: the board keeps it in its memory
constexpr size_t kLongestEnd = 16384;  // of one read and a frame's end

void keep(Outcome& outcome, const std::string& out, size_t most)
{
    outcome.out = out.substr(0, most);
    outcome.dropped = out.size() - outcome.out.size();
}

void check_words(const Words& program, const std::string& name)
{
    for (const std::string& word : program)
        for (char c : word)
            if (c < ' ' || c > '~')
                throw std::runtime_error(name + ": a console takes printable ASCII, and " + program[0] +
                                         " has another character among its arguments");
}

} // namespace

Outcome Console::run(const Words& program, const Limits& limits, const Watch& watch)
{
    check_words(program, name_);
    Outcome outcome;
    terminal_.attend(&watch);
    try {
        if (!attached_) attach(watch);
        const auto from = Clock::now();
        outcome = execute(program, limits, watch);
        outcome.seconds = seconds_since(from);
        if (!attached_ && outcome.kind != Outcome::reset) recover(outcome, watch);
    } catch (const Broken& e) {
        attached_ = false;
        outcome.kind = Outcome::lost;
        outcome.reason = e.what();
        recover(outcome, watch);
    } catch (const std::runtime_error& e) { // of attach()
        outcome.kind = terminal_.stopped() ? Outcome::interrupted : Outcome::lost;
        outcome.reason = e.what();
    }
    terminal_.attend(nullptr);
    return outcome;
}

// The board may have started again without a word, as behind a network it does.
void Console::recover(Outcome& outcome, const Watch& watch)
{
    const std::string before = boot_id_;
    const auto begin = Clock::now();
    while (!attached_ && !terminal_.stopped() && seconds_since(begin) < access_.connect_s) {
        try {
            attach(watch);
        } catch (const std::runtime_error&) { // the outcome has its reason already
            if (!watch.tick()) return;
            terminal_.attend(&watch);
            poll(nullptr, 0, 200);
        }
    }
    if (!attached_ || before.empty() || boot_id_.empty() || before == boot_id_) return;
    outcome.kind = Outcome::reset;
    outcome.reason = kRestarted;
}

Outcome Console::execute(const Words& program, const Limits& limits, const Watch& watch)
{
    for (int attempt = 0; attempt < kTries; ++attempt) {
        Outcome outcome;
        Running running{random_word(), limits, watch, outcome};
        if (!start(program, running.key)) break;
        if (!follow(running) || take_result(running)) return outcome;
    }
    Outcome outcome;
    outcome.kind = terminal_.stopped() ? Outcome::interrupted : Outcome::garbled;
    outcome.reason = "the console did not take the command: the program was not started";
    return outcome;
}

// Gives the watch what has come.
bool Console::is_over(Running& running)
{
    const std::string& text = terminal_.text();
    const std::string_view body = body_so_far(text, running.key);
    if (body.size() > running.shown) {
        running.watch.output(without_terminal(body.substr(running.shown)));
        running.shown = body.size();
    }
    if (at_prompt()) return true;
    const std::string end = "<" + running.key + ":" + running.key + ":";
    const size_t at = text.find(end, text.size() - std::min(text.size(), kLongestEnd));
    return at != text.npos && text.find('>', at) != text.npos;
}

bool Console::follow(Running& running)
{
    const auto begin = Clock::now();
    double limit = running.limits.seconds;
    while (!is_over(running)) {
        terminal_.pump(100);
        if (terminal_.stopped()) return interrupt(running, Outcome::interrupted);
        if (terminal_.text().size() > kMostBytes) {
            running.outcome.reason = "it writes without end";
            return interrupt(running, Outcome::hung);
        }
        if (restarted(running)) return leave(running, Outcome::reset, kRestarted);
        if (seconds_since(begin) < limit) continue;
        if (!shows_boot(terminal_.text()) || limit > running.limits.seconds) return at_limit(running);
        limit += kLongestBoot * access_.connect_s; // a key now might stop the boot loader
    }
    terminal_.wait(kQuiet, [&] { return at_prompt(); });
    return true;
}

// A program may print what looks like a login or a boot log; it does not answer like them.
bool Console::restarted(Running& running)
{
    const std::string& text = terminal_.text();
    if (terminal_.quiet_s() < kQuiet || running.asked == text.size()) return false;
    bool fresh = false;
    if (prompt_of(text) == Prompt::login) {
        const size_t before = text.size();
        terminal_.send("\r");
        fresh = terminal_.wait(
            2 * kQuiet, [&] { return prompt_of(std::string_view(text).substr(before)) == Prompt::login; });
    } else if (shows_boot(text)) {
        if (terminal_.quiet_s() < kBootQuiet) return false;
        fresh = ask_session(terminal_, word_) == Session::fresh;
    }
    running.asked = text.size();
    return fresh;
}

// The end and the prompt may both have been lost: a shell that answers has ended the program.
bool Console::at_limit(Running& running)
{
    keep_seen(running);
    const auto frame = fetch(1);
    if (frame && frame->run == running.key && !frame->status.empty()) return true;
    return interrupt(running, Outcome::hung);
}

bool Console::interrupt(Running& running, Outcome::Kind kind)
{
    running.outcome.kind = kind;
    keep_seen(running);
    terminal_.send("\x03");
    if (terminal_.wait(running.limits.grace_s, [&] { return is_over(running); })) {
        terminal_.settle(kQuiet / 2, kQuiet); // lines that were typed while it ran have their prompts now
        return true;
    }
    if (prompt_of(terminal_.text()) == Prompt::login) return leave(running, Outcome::reset, kRestarted);
    if (kill_stopped(running)) return true;
    switch (ask_session(terminal_, word_)) {
    case Session::present:
        return true;
    case Session::fresh:
        return leave(running, Outcome::reset, kRestarted);
    case Session::none:
        break;
    }
    return leave(running, kind, "it did not end on an interrupt");
}

// SIGINT may be caught, or ignored in all that a login has started. The shell takes a program back that is stopped.
bool Console::kill_stopped(Running& running)
{
    terminal_.clear();
    terminal_.send("\x1a");
    if (!terminal_.wait(kQuiet, [&] { return is_over(running); })) return false;
    running.outcome.reason = "it did not end on an interrupt and was killed";
    terminal_.settle(kQuiet / 2, kQuiet);
    if (!enter("kill -TERM %%;kill -CONT %%")) return false; // it puts the board back
    terminal_.settle(kQuiet, 2 * kQuiet);
    return enter("kill -KILL %%");
}

// What has come of its output; of use where no whole frame comes.
void Console::keep_seen(Running& running)
{
    const std::string_view body = body_so_far(terminal_.text(), running.key);
    if (!body.empty()) keep(running.outcome, without_terminal(body), running.limits.bytes);
}

bool Console::leave(Running& running, Outcome::Kind kind, const std::string& reason)
{
    attached_ = false;
    running.outcome.kind = kind;
    running.outcome.reason = reason;
    if (running.outcome.out.empty())
        keep(running.outcome, without_terminal(body_so_far(terminal_.text(), running.key)),
             running.limits.bytes);
    return false;
}

bool Console::take_result(Running& running)
{
    Outcome& outcome = running.outcome;
    auto frame = find_frame(terminal_.text(), running.key);
    keep_seen(running);
    if (!frame || !frame->intact() || frame->sum.empty()) frame = fetch(kReadings);
    if (!frame) {
        outcome.kind = Outcome::garbled;
        outcome.reason = "its output cannot be read: no reading fits its checksum";
        return true;
    }
    if (frame->run != running.key) return outcome.kind != Outcome::ended;
    outcome.status =
        frame->status.empty() ? 130 : atoi(frame->status.c_str()); // the shell's for an interrupt
    keep(outcome, frame->body, running.limits.bytes);
    return true;
}

} // namespace station
