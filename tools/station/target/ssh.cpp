// A board's shell over the PC's own ssh: one connection for the whole line, each program a session on it.
#include "tools/station/target/child.hpp"
#include "tools/station/target/console_text.hpp"
#include "tools/station/text.hpp"

#include "tools/cli/command_line.hpp"

#include <csignal>
#include <cstring>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace station {
namespace {

constexpr double kSignalSeconds = 5; // for a session that only sends a signal
constexpr int kSshFailed = 255;      // of ssh itself, or of a program that ended so
constexpr const char* kStands = "station-ready\n";

struct Advice {
    const char* said; // by ssh
    const char* advice;
};
constexpr Advice kAdvice[] = {
    {"IDENTIFICATION HAS CHANGED", "the board's host key is another than known_hosts has; after a new "
                                   "firmware remove the old one: ssh-keygen -R HOST"},
    {"verification failed",
     "the board's host key is not in known_hosts; connect once by hand and compare it: ssh HOST"},
    {"Permission denied",
     "the board refuses the login; copy a key to it with ssh-copy-id, or give --user or --password-file"},
};

// A folder that no other user can enter, gone with its owner.
class PrivateFolder {
public:
    PrivateFolder()
    {
        path_ = (std::filesystem::temp_directory_path() / "zep-station.XXXXXX").string();
        if (!mkdtemp(path_.data()))
            throw std::runtime_error("no folder can be made in the one for temporary files");
    }
    ~PrivateFolder()
    {
        std::error_code ignored; // a rest there does no harm
        std::filesystem::remove_all(path_, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    std::string operator/(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Of [USER@]HOST[:PORT], without the brackets of a numeric address.
std::string host_of(std::string address)
{
    address.erase(0, address.rfind('@') + 1);
    if (address.starts_with('[')) return address.substr(1, address.find(']') - 1);
    return address.substr(0, address.find(':'));
}

class SshTarget final : public Target {
public:
    SshTarget(const std::string& address, Access access)
        : name_("ssh:" + address), access_(std::move(access)), host_(host_of(address)),
          place_("ssh://" + (address.find('@') == address.npos ? access_.user + "@" : "") + address)
    {
    }
    ~SshTarget() override { disconnect(); }
    void begin(const Watch& watch) override;
    Outcome run(const Words& program, const Limits& limits, const Watch& watch) override;
    Words beside(const Words& program, int port) override;

private:
    void disconnect();
    [[nodiscard]] Words master_words() const;
    void wait_ready(const Watch& watch);
    [[noreturn]] void refuse(const std::string& err) const;
    // A session on the connection; it never makes one of its own.
    [[nodiscard]] Words session(const std::string& command) const;
    bool stands();
    Outcome run_session(const Words& program, const Limits& limits, const Watch& watch);
    void recover(Outcome& outcome, const Watch& watch);

    const std::string name_;
    const Access access_;
    const std::string host_;
    const std::string place_; // as ssh takes it
    const PrivateFolder folder_;
    std::unique_ptr<Child> master_;
    int input_ = -1; // the master's; its end ends the connection, also when the station is killed
    std::string boot_id_;
};

void SshTarget::disconnect()
{
    if (input_ >= 0) close(input_);
    input_ = -1;
    if (master_) master_->status(1);
    master_.reset();
}

Words SshTarget::master_words() const
{
    Words words = {"ssh",
                   "-M",
                   "-T",
                   "-S",
                   folder_ / "master",
                   "-o",
                   "ControlPersist=no",
                   "-o",
                   "ConnectTimeout=" + std::to_string(long(access_.connect_s) + 1),
                   "-o",
                   "ServerAliveInterval=2",
                   "-o",
                   "ServerAliveCountMax=3",
                   "-o",
                   "ClearAllForwardings=yes"};
    if (access_.password_file.empty()) {
        words.insert(words.end(), {"-o", "BatchMode=yes"});
    } else {
        // ssh takes a password from a program alone; a question about a host key would go to that program too.
        const std::string asked = folder_ / "password";
        std::ofstream(asked) << "#!/bin/sh\nexec head -n 1 "
                             << quoted({std::filesystem::absolute(access_.password_file).string()}) << "\n";
        std::filesystem::permissions(asked, std::filesystem::perms::owner_all);
        words.insert(words.end(), {"-o", "StrictHostKeyChecking=yes", "-o", "NumberOfPasswordPrompts=1"});
        words.insert(words.begin(), {"env", "SSH_ASKPASS_REQUIRE=force", "SSH_ASKPASS=" + asked});
    }
    words.insert(words.end(), {place_, std::string("cat /proc/sys/kernel/random/boot_id; echo ") +
                                           std::string(kStands, strlen(kStands) - 1) + "; exec cat"});
    return words;
}

void SshTarget::refuse(const std::string& err) const
{
    for (const Advice& row : kAdvice)
        if (err.find(row.said) != err.npos) throw std::runtime_error(name_ + ": " + row.advice);
    const std::string said = harmless_line(last_line(err));
    throw std::runtime_error(name_ + ": no connection" + (said.empty() ? "" : ": " + said));
}

void SshTarget::wait_ready(const Watch& watch)
{
    const auto begin = Clock::now();
    std::string out, err;
    while (!out.ends_with(kStands)) {
        if (!master_->read(100, [&](auto piece, bool is_err) { (is_err ? err : out) += piece; })) refuse(err);
        if (!watch.tick()) throw std::runtime_error(name_ + ": interrupted");
        if (seconds_since(begin) > 2 * access_.connect_s) refuse("the board lets in and runs nothing");
    }
    boot_id_ = out.substr(0, out.size() - strlen(kStands));
}

void SshTarget::begin(const Watch& watch)
{
    disconnect();
    int input[2];
    if (pipe2(input, O_CLOEXEC) < 0) throw std::runtime_error("no pipe");
    input_ = input[1];
    try {
        master_ = std::make_unique<Child>(master_words(), input[0]);
        close(input[0]);
        wait_ready(watch);
    } catch (const std::runtime_error&) {
        disconnect();
        throw;
    }
}

Words SshTarget::session(const std::string& command) const
{
    return {"ssh",  "-T",
            "-S",   folder_ / "master",
            "-o",   "ControlMaster=no",
            "-o",   "ProxyCommand=false",
            "-o",   "BatchMode=yes",
            "-o",   "LogLevel=ERROR",
            place_, command};
}

bool SshTarget::stands()
{
    if (!master_ || master_->status() >= 0) return false;
    return run_child({"ssh", "-S", folder_ / "master", "-O", "check", place_}, {.seconds = kSignalSeconds},
                     {})
               .status == 0;
}

// The first line of the output is the program's number on the board, for a session that sends a signal.
Outcome SshTarget::run_session(const Words& program, const Limits& limits, const Watch& watch)
{
    std::string pid;
    bool named = false;
    const Watch inner = {[&](std::string_view piece) {
                             const size_t end = named ? 0 : std::min(piece.find('\n'), piece.size());
                             pid += piece.substr(0, end);
                             if (!named && end < piece.size()) {
                                 named = true;
                                 piece.remove_prefix(1);
                             }
                             if (end < piece.size()) watch.output(piece.substr(end));
                         },
                         watch.tick};
    const auto signal = [&](Child& child, int number) {
        const Watch patient = {.tick = [&] { return watch.tick(), true; }};
        // The board's server has given the program a process group, as a terminal would; not each server does.
        const std::string kill = "kill -" + std::string(number == SIGINT ? "INT" : "KILL");
        const std::string command = kill + " -" + pid + " 2>/dev/null || " + kill + " " + pid;
        const bool sent =
            named &&
            run_child(session(command), {.seconds = kSignalSeconds, .grace_s = 1}, patient).status == 0;
        if (number == SIGKILL || !sent) child.signal(SIGKILL);
    };
    Limits inner_limits = limits;
    inner_limits.bytes += 16; // the first line
    Outcome outcome = run_child(session("echo $$; exec " + quoted(program) + " </dev/null"), inner_limits,
                                inner, -1, signal);
    outcome.out.erase(0, std::min(pid.size() + 1, outcome.out.size()));
    if (outcome.out.size() > limits.bytes) {
        outcome.dropped += outcome.out.size() - limits.bytes;
        outcome.out.resize(limits.bytes);
    }
    return outcome;
}

void SshTarget::recover(Outcome& outcome, const Watch& watch)
{
    const std::string before = boot_id_;
    for (const auto from = Clock::now(); seconds_since(from) < access_.connect_s && watch.tick();
         poll(nullptr, 0, 200)) {
        try {
            begin(watch);
        } catch (const std::runtime_error&) { // the outcome has its reason already
            continue;
        }
        if (before.empty() || boot_id_ == before) return;
        outcome.kind = Outcome::reset;
        outcome.reason = "the board restarted meanwhile";
        return;
    }
}

Words SshTarget::beside(const Words& program, int port) { return filled(program, host_, port); }

Outcome SshTarget::run(const Words& program, const Limits& limits, const Watch& watch)
{
    Outcome outcome;
    try {
        if (!master_ || master_->status() >= 0) begin(watch);
    } catch (const std::runtime_error& e) {
        outcome.kind = Outcome::lost;
        outcome.reason = e.what();
        return outcome;
    }
    outcome = run_session(program, limits, watch);
    if (outcome.kind == Outcome::interrupted ||
        (outcome.kind == Outcome::ended && outcome.status != kSshFailed))
        return outcome;
    if (stands()) return outcome;
    if (outcome.kind == Outcome::ended || outcome.reason.empty()) {
        outcome.kind = Outcome::lost;
        outcome.reason = name_ + ": the connection broke";
    }
    recover(outcome, watch);
    return outcome;
}

} // namespace

std::unique_ptr<Target> ssh_target(const std::string& address, const Access& access)
{
    if (host_of(address).empty() || address[0] == '-' || host_of(address)[0] == '-' ||
        address.find_first_of(" \t\n") != address.npos)
        throw cli::WrongUse("TARGET 'ssh:" + address + "': give ssh:[USER@]HOST[:PORT]");
    return std::make_unique<SshTarget>(address, access);
}

} // namespace station
