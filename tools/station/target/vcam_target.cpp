// A virtual camera, by the command vcam: it runs from begin() on, each program is a vcam exec.
#include "tools/station/target/child.hpp"
#include "tools/station/text.hpp"

#include "tools/cli/output_file.hpp"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace station {
namespace {

constexpr double kStartSeconds = 30;
constexpr double kEndSeconds = 5; // until vcam run has said how the camera ended
constexpr int kKilled = 128 + SIGKILL, kSandboxFailure = 125, kPowerCut = 121;
constexpr const char* kSoundTool = "zep-audio"; // bound into the camera
constexpr const char* kReady = "ready\n";
// A few seconds of the PC's, at the most.
constexpr const char* kWhenListening = "i=0; until grep -qs \"$0\" /proc/net/tcp /proc/net/tcp6 || [ $((i += "
                                       "1)) -gt 3000 ]; do :; done; exec \"$@\"";

class VcamTarget : public Target {
public:
    VcamTarget(std::string folder, Words options) : folder_(std::move(folder)), options_(std::move(options))
    {
    }
    ~VcamTarget() override
    {
        end();
        if (turn_ >= 0) close(turn_);
    }

    // Joins a camera that runs; starts one that does not, and ends that in the destructor.
    void begin(const Watch& watch) override
    {
        if (turn_ < 0) turn_ = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (turn_ >= 0 && flock(turn_, LOCK_EX | LOCK_NB) < 0)
            throw std::runtime_error(folder_ + ": another station tests this camera; wait for its end");
        joined_ = quick({"exec", folder_, "--", "true"}).status == 0;
        if (!joined_) start(watch);
    }

    Outcome run(const Words& program, const Limits& limits, const Watch& watch) override
    {
        if (!joined_ && camera_->status() >= 0) return after_end({});
        Outcome outcome = run_child(executing(program), limits, watch);
        take_back();
        const bool killed = outcome.status == kKilled || outcome.status == kSandboxFailure;
        const bool refused = outcome.out.empty() && outcome.err.rfind("vcam: ", 0) == 0;
        if ((!killed && !refused) || !outcome.reason.empty()) return outcome;
        if (!joined_ && camera_->status(killed ? kEndSeconds : 0) >= 0) return after_end(std::move(outcome));
        return still_there(std::move(outcome));
    }

    bool act(const Words& command) override
    {
        keep_wiring();
        Words words = {command.at(0), folder_};
        words.insert(words.end(), command.begin() + 1, command.end());
        const Outcome outcome = quick(words);
        if (outcome.status == 0) return true;
        throw std::runtime_error(last_line(outcome.err));
    }

    // The PC's program joins the camera: sound and time are one there, and nothing waits for the clock on the wall.
    // It starts when the board listens: while that program is on its way into the camera nothing runs there, and a
    // pause between two tries would take no time.
    Words beside(const Words& program, int port) override
    {
        Words inside = filled(program, "127.0.0.1", port);
        if (inside[0] == kSoundTool && sound_tool_[0] == '/')
            inside[0] = std::string("/run/bin/") + kSoundTool;
        char listening[32];
        snprintf(listening, sizeof listening, ":%04X [0-9A-F]*:0000 0A", unsigned(port));
        Words words = {"sh", "-c", kWhenListening, listening};
        words.insert(words.end(), inside.begin(), inside.end());
        return executing(words);
    }

private:
    // What a hand does lasts for one run: the files of wiring and plugs are then as they were.
    void keep_wiring()
    {
        for (const char* name : {"pins", "plugs"}) {
            std::ifstream file(folder_ + "/" + name, std::ios::binary);
            if (file) wiring_.emplace(name, std::string(std::istreambuf_iterator<char>(file), {}));
        }
    }

    void take_back()
    {
        for (const auto& [name, text] : wiring_) {
            cli::OutputRule any;
            any.force = true;
            cli::OutputFile file(folder_ + "/" + name, any);
            file.write(text);
            file.commit();
        }
        wiring_.clear();
    }

    [[nodiscard]] Words executing(const Words& program) const
    {
        Words words = {vcam_, "exec", folder_, "--"};
        words.insert(words.end(), program.begin(), program.end());
        return words;
    }

    Outcome quick(Words words) const
    {
        words.insert(words.begin(), vcam_);
        return run_child(words, {.seconds = kStartSeconds}, {});
    }

    void start(const Watch& watch)
    {
        Pipe input;
        Words words = {vcam_, "run", folder_, "-v"};
        if (sound_tool_[0] == '/') words.insert(words.end(), {"--bind", sound_tool_});
        words.insert(words.end(), options_.begin(), options_.end());
        words.insert(words.end(), {"--", "/bin/sh", "-c", "echo ready; read end"});
        camera_ = std::make_unique<Child>(words, input.fd[0]);
        keep_ = input.take(1);
        said_.clear();
        std::string out;
        const auto begin = Clock::now();
        const auto take = [&](std::string_view piece, bool is_err) { (is_err ? said_ : out) += piece; };
        while (out != kReady && camera_->read(100, take)) {
            if (watch.tick() && seconds_since(begin) < kStartSeconds) continue;
            end();
            throw std::runtime_error(folder_ + ": the camera was not started");
        }
        if (out == kReady) return;
        end();
        throw std::runtime_error(last_line(said_));
    }

    // How a camera of ours came to its end. After a reset it starts again, as a board does.
    Outcome after_end(Outcome outcome)
    {
        while (camera_->pending()) camera_->read(0, [&](std::string_view piece, bool) { said_ += piece; });
        const int status = camera_->status();
        outcome.reason = last_line(said_);
        const bool off = outcome.reason.find("poweroff") != std::string::npos;
        outcome.kind =
            off || status == kPowerCut || status == kSandboxFailure ? Outcome::lost : Outcome::reset;
        end();
        if (outcome.kind == Outcome::reset) start({});
        return outcome;
    }

    Outcome still_there(Outcome outcome) const
    {
        if (quick({"exec", folder_, "--", "true"}).status == 0) return outcome;
        outcome.kind = Outcome::lost;
        outcome.reason = folder_ + ": the camera has ended or is gone";
        return outcome;
    }

    // The shell reads the end of its input, and the camera ends with it.
    void end()
    {
        if (keep_ >= 0) close(keep_);
        keep_ = -1;
        if (camera_) camera_->status(kEndSeconds);
        camera_.reset();
    }

    const std::string sound_tool_ = host_tool(kSoundTool);
    const std::string vcam_ = host_tool("vcam");
    const std::string folder_;
    const Words options_;
    std::map<std::string, std::string> wiring_; // before a hand's work, by the file's name
    bool joined_ = false;
    int turn_ = -1;                 // the folder, locked: one station at a time
    std::unique_ptr<Child> camera_; // vcam run, where this station has started it
    std::string said_;              // by it on standard error
    int keep_ = -1;                 // the shell's input: the camera runs as long as it is open
};

} // namespace

std::unique_ptr<Target> vcam_target(const std::string& address, const Access& access)
{
    return std::make_unique<VcamTarget>(address, access.start_options);
}

} // namespace station
