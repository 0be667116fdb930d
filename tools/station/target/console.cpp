// A console's session: the shell's functions that run a program and frame its output.
#include "tools/station/target/console.hpp"
#include "tools/station/target/console_login.hpp"

#include <stdexcept>

namespace station {
namespace {

constexpr size_t kPiece =
    32; // of a line that is typed: most get through a line that loses one byte in a hundred
constexpr double kAnswer = 3;    // of a shell at its prompt
constexpr double kReading = 120; // of a whole file, as long as it comes

// What the session's shell is given; %s is its word. Lines are short: one that loses a character is typed again.
// zr KEY LENGTH PROGRAM... runs it, unless the words lost a character; zz KEY LENGTH has them from $z. zg KEY gives its
// output once more. SIGINT reaches every process of the pipe and must end the program alone, so that its status is
// written. The second line ends bash's editor, which redraws lines.
constexpr const char* kSetup[] = {
    "zo=${zo-$PS1} PS1='<'%s'> '",
    "set +o emacs 2>/dev/null",
    "zs=%s t=/tmp/.zs-%s",
    "zc(){ cat $t.s $t.o|cksum;}",
    "ze(){ echo \"<$1:`cat $t.s`:`zc`>\";}",
    "zg(){ echo \"<$1:o>\";cat $t.o;ze $1;}",
    "zw(){ echo $k:$1 >$t.s;}",
    "zb(){ : >$t.o;zw;echo \"<$k:o>\";}",
    "zq(){ trap : INT;\"$@\" </dev/null 2>&1;zw $?;}",
    "zt(){ trap '' INT;exec tee $t.o;}",
    "zp(){ (zq \"$@\")|(zt);ze $k;}",
    "zx(){ trap : INT;zb;zp \"$@\";trap - INT;}",
    "zn(){ l=\"$*\";test ${#l} = $n;}",
    "zr(){ k=$1;n=$2;shift 2;zn \"$@\"&&zx \"$@\";}",
    "zz(){ eval \"zr $1 $2 $z\";}",
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
        type(logged_in_ ? "exit" : "set -o emacs 2>/dev/null;PS1=$zo");
    } catch (const Broken&) { // the board has gone: nothing is left to tidy up
    }
}

Words Console::beside(const Words& program, int port)
{
    const std::string host = terminal_.host();
    return host.empty() ? Target::beside(program, port) : filled(program, host, port);
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

// For lines that may be run twice: a prompt that does not come back may have been garbled.
bool Console::enter(const std::string& line)
{
    for (int attempt = 0; attempt < kTries && type(line); ++attempt)
        if (terminal_.wait(kAnswer, [&] { return at_prompt(); })) return true;
    return false;
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

// Starts it, unless something is lost on the way. A long line goes in pieces into a variable first: when a piece is
// missing or there twice, the length shows it.
bool Console::start(const Words& program, const std::string& key)
{
    size_t length = program.size() - 1;
    for (const std::string& word : program) length += word.size();
    const std::string line = typed(program), call = key + " " + std::to_string(length);
    if (line.size() <= kPiece) return type("zr " + call + " " + line);
    if (!enter("z=")) return false;
    for (size_t at = 0; at < line.size(); at += kPiece)
        if (!enter("z=$z" + quoted({line.substr(at, kPiece)}))) return false;
    return type("zz " + call);
}

std::optional<Frame> Console::fetch(int tries)
{
    std::optional<Frame> before;
    for (int attempt = 0; attempt < tries; ++attempt) {
        const std::string key = random_word();
        if (!type("zg " + key)) continue;
        // A prompt alone may be an earlier line's.
        terminal_.wait(kReading, [&] {
            return (at_prompt() && find_frame(terminal_.text(), key)) || terminal_.quiet_s() > kAnswer;
        });
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
