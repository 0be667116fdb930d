// A console's session: the shell's functions that run a program and frame its output.
#include "tools/station/console.hpp"
#include "tools/station/console_login.hpp"

#include <stdexcept>

namespace station {
namespace {

constexpr double kAnswer = 3;    // of a shell at its prompt
constexpr double kReading = 120; // of a whole file, as long as it comes

// What the session's shell is given; %s is its word. The first line ends bash's editor, which redraws lines.
// zr KEY LENGTH PROGRAM...: runs it, unless the words lost a character. zg KEY: its output once more.
// SIGINT reaches every process of the pipe and must end the program alone, so that the status is still written.
constexpr const char* kSetup[] = {
    "set +o emacs 2>/dev/null",
    "zs=%s zo=${zo-$PS1} t=/tmp/.zs-%s PS1='<'%s'> '",
    "ze(){ echo \"<$1:`cat $t.s`:`cat $t.s $t.o|cksum`>\";}",
    "zg(){ echo \"<$1:o>\";cat $t.o;ze $1;}",
    "zp(){ (trap : INT;\"$@\" </dev/null 2>&1;echo $k:$? >$t.s)|(trap '' INT;exec tee $t.o);}",
    "zx(){ trap : INT;: >$t.o;echo $k: >$t.s;echo \"<$k:o>\";zp \"$@\";ze $k;trap - INT;}",
    "zr(){ k=$1;n=$2;shift 2;l=\"$*\";test ${#l} = $n&&zx \"$@\";}",
};

std::string with_word(std::string line, const std::string& word)
{
    for (size_t at; (at = line.find("%s")) != line.npos;) line.replace(at, 2, word);
    return line;
}

} // namespace

Console::Console(std::unique_ptr<Wire> wire, std::string name, Access access)
    : terminal_(std::move(wire)), name_(std::move(name)), access_(std::move(access))
{
}

Console::~Console()
{
    terminal_.attend(nullptr);
    if (!attached_) return;
    try {
        enter("rm -f $t.o $t.s");
        enter(logged_in_ ? "exit" : "PS1=$zo;set -o emacs 2>/dev/null");
    } catch (const Broken&) { // the board has gone: nothing is left to tidy up
    }
}

void Console::attach(const Watch& watch)
{
    attached_ = false;
    terminal_.attend(&watch);
    terminal_.open(access_.connect_s, watch);
    logged_in_ = reach_shell(terminal_, name_, access_) || logged_in_;
    for (int attempt = 0; attempt < kTries && !attached_; ++attempt) {
        if (terminal_.stopped()) throw std::runtime_error(name_ + ": interrupted");
        if (!set_up()) continue;
        const Outcome id =
            execute({"cat", "/proc/sys/kernel/random/boot_id"}, Limits{.seconds = kAnswer}, watch);
        attached_ = id.kind == Outcome::ended;
        boot_id_ = id.out;
    }
    if (!attached_)
        throw std::runtime_error(name_ +
                                 ": the console garbles too much, or its shell lacks cat, tee or /tmp");
}

bool Console::set_up()
{
    for (const char* line : kSetup)
        if (!enter(with_word(line, word_))) return false;
    return true;
}

bool Console::enter(const std::string& line)
{
    if (!type(line)) return false;
    terminal_.wait(kAnswer, [&] { return at_prompt() || terminal_.quiet_s() > 0.3; });
    return true;
}

// Until the line is sent off nothing has happened, so that a second try is harmless.
bool Console::type(const std::string& line)
{
    for (int attempt = 0; attempt < kTries && !terminal_.stopped(); ++attempt) {
        const bool typed = terminal_.type(line);
        terminal_.clear();
        terminal_.send(typed ? "\r" : "\x03");
        if (typed) return true;
        if (terminal_.wait(0.5, [&] { return at_prompt(); })) continue;
        terminal_.send("\x15\r"); // a shell without a controlling terminal gets no SIGINT
        terminal_.wait(1, [&] { return at_prompt(); });
    }
    return false;
}

std::optional<Frame> Console::fetch(int tries)
{
    std::optional<Frame> before;
    for (int attempt = 0; attempt < tries; ++attempt) {
        const std::string key = random_word();
        if (!type("zg " + key)) continue;
        terminal_.wait(kReading, [&] { return at_prompt() || terminal_.quiet_s() > kAnswer; });
        const auto frame = find_frame(terminal_.text(), key);
        if (!frame || !frame->intact()) continue;
        if (!frame->sum.empty() || before == frame) return frame;
        before = frame; // no cksum: two readings that agree count
    }
    return {};
}

std::unique_ptr<Target> console_target(std::unique_ptr<Wire> wire, const std::string& name,
                                       const Access& access)
{
    return std::make_unique<Console>(std::move(wire), name, access);
}

} // namespace station
