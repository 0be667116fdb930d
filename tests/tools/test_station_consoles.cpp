// zep-station's targets: what a board on a serial line, behind telnet and behind ssh does, and what comes of it.
#include "tests/support/run.hpp"
#include "tests/tools/board_console.hpp"
#include "tools/cli/command_line.hpp"
#include "tools/station/target/target.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

using namespace station;
using testing::HasSubstr;

constexpr const char* kBoot = "U-Boot 2010.06 (Jan 01 2013)\r\nHit any key to stop autoboot:  0\r\n"
                              "Uncompressing Linux... done, booting the kernel.\r\nLinux version 3.0.8\r\n"
                              "[    0.000000] console [ttyAMA0] enabled\r\nVFS: Mounted root\r\n";

struct Row {
    const char* name;
    Ways ways;
    std::string program; // of the board's shell, in the board's folder
    Outcome::Kind kind;
    std::string out, reason;             // the latter a part
    double seconds = 100;                // of the limit; a hung program's is short
    Outcome::Kind then = Outcome::ended; // of the next program
};

std::string numbers(int last)
{
    std::string text;
    for (int i = 1; i <= last; ++i) text += std::to_string(i) + "\n";
    return text;
}

const Row kRows[] = {
    {"a prompt stands", {}, "echo a; echo b >&2; printf c", Outcome::ended, "a\nb\nc", ""},
    {"a password is asked for",
     {.login = "root", .password = "secret"},
     "echo in",
     Outcome::ended,
     "in\n",
     ""},
    {"the board is booting",
     {.login = "root", .password = "secret", .boot = kBoot},
     "echo in",
     Outcome::ended,
     "in\n",
     ""},
    {"a program stands in the way", {.typed = "sleep 1000\r"}, "echo free", Outcome::ended, "free\n", ""},
    {"no reading is without a kernel's message",
     {.kernel_up = 251},
     "seq 1 1000",
     Outcome::garbled,
     "",
     "checksum"},
    {"few bytes to the station are lost", {.drop_up = 331}, "seq 1 30", Outcome::ended, numbers(30), ""},
    {"bytes to the board are lost", {.drop_down = 97}, "echo whole", Outcome::ended, "whole\n", ""},
    {"bytes are others", {.garble_up = 211}, "echo verdict failed", Outcome::ended, "verdict failed\n", ""},
    {"the kernel writes in between", {.kernel_up = 251}, "seq 1 30", Outcome::ended, numbers(30), ""},
    {"an editor, and no cksum",
     {.typed = "cksum() { :; }\r", .shell = "exec bash --norc"},
     "echo twice",
     Outcome::ended,
     "twice\n",
     ""},
    {"CR and control characters come through",
     {},
     "printf 'a\\r\\nb\\033[1m\\001\\n'",
     Outcome::ended,
     "a\r\nb\033[1m\001\n",
     ""},
    {"text like a login and a boot is none",
     {},
     "echo 'Linux version 3'; printf 'login: '; sleep 2; echo on",
     Outcome::ended,
     "Linux version 3\nlogin: on\n",
     ""},
    {"a status", {}, "echo left; exit 255", Outcome::ended, "left\n", ""},
    {"the board restarts in a test",
     {.login = "root", .password = "secret", .boot = kBoot},
     "touch reset; sleep 1000",
     Outcome::reset,
     "",
     "restarted"},
    {"it restarts without a login",
     {.boot = kBoot},
     "touch reset; sleep 1000",
     Outcome::reset,
     "",
     "restarted"},
    {"a program hangs", {}, "sleep 1000", Outcome::hung, "", "", 1},
    {"a program puts the board back first",
     {},
     "trap 'sleep 0.2; echo back; exit 3' INT; while :; do sleep 0.1; done",
     Outcome::hung,
     "back\n",
     "",
     3},
    {"a program ignores the interrupt", {}, "trap '' INT; sleep 1000", Outcome::hung, "", "was killed", 1},
    {"a program writes without end", {}, "yes", Outcome::hung, "", "without end"},
    {"the board is silent", {}, "touch mute; sleep 1000", Outcome::hung, "", "did not end", 1, Outcome::lost},
    {"the port has gone", {}, "touch unplug; sleep 1000", Outcome::lost, "", "", 100, Outcome::lost},
    {"a wrong password",
     {.login = "root", .password = "other"},
     "true",
     Outcome::lost,
     "",
     "refuses the login"},
    {"it writes without end from the first", {.shell = "exec yes"}, "true", Outcome::lost, "", "without end"},
    {"the boot loader answers", {.loader = true}, "true", Outcome::lost, "", "boot loader"},
    {"every third byte is lost", {.drop_up = 3}, "true", Outcome::lost, "", ""},
};

Outcome on_board(Target& target, const std::string& line, double seconds = 100)
{
    return target.run({"sh", "-c", line}, {.seconds = seconds, .grace_s = seconds < 100 ? 3. : 30.}, {});
}

// Each program is run once at most, whatever the line does.
void try_row(const Row& row)
{
    const TempFolder folder;
    const std::string there = "cd " + folder.path() + "; echo >>runs; ";
    const BoardConsole board(row.ways, folder.path());
    const bool comes = row.kind != Outcome::lost || row.then == Outcome::lost;
    Access access;
    access.password_file = folder.write("password", "secret\n");
    access.connect_s = row.kind == Outcome::lost || row.then == Outcome::lost ? 4 : 60;
    const auto target = make_target("serial:" + board.name(), access);
    if (!comes) {
        try {
            target->begin({});
            ADD_FAILURE() << "it begins";
        } catch (const std::runtime_error& e) {
            EXPECT_THAT(e.what(), HasSubstr(row.reason));
            EXPECT_THAT(e.what(), Not(HasSubstr("secret")));
        }
        return;
    }
    target->begin({});
    const Outcome outcome = on_board(*target, there + row.program, row.seconds);
    EXPECT_EQ(outcome.kind, row.kind) << outcome.reason << outcome.out.substr(0, 200);
    EXPECT_TRUE(row.out.empty() || outcome.out == row.out) << outcome.out;
    EXPECT_THAT(outcome.reason, HasSubstr(row.reason));
    EXPECT_EQ(folder.read("runs"), "\n");
    if (row.kind == Outcome::garbled) return;
    const Outcome next = on_board(*target, "echo next; exit 7");
    EXPECT_EQ(next.kind, row.then) << next.reason;
    EXPECT_EQ(next.status, row.then == Outcome::ended ? 7 : 0);
}

// Together, as most of their time is waiting.
TEST(SerialConsole, EachConditionOfLineAndBoardHasItsOutcome)
{
    const size_t count = std::size(kRows);
    std::vector<pid_t> children;
    std::vector<std::string> texts;
    const TempFolder folder;
    for (const Row& row : kRows) {
        texts.push_back(folder / std::to_string(children.size()));
        fflush(nullptr);
        children.push_back(fork());
        if (children.back() > 0) continue;
        if (!freopen(texts.back().c_str(), "w", stdout)) _exit(2);
        try {
            try_row(row);
        } catch (const std::exception& e) {
            ADD_FAILURE() << e.what();
        }
        fflush(nullptr);
        _exit(HasFailure());
    }
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(end_of(children[i]), 0) << kRows[i].name << ": " << read_file(texts[i]);
}

// A second user, and a file that is no terminal; the settings of the port come back.
TEST(SerialConsole, ThePortIsTakenAloneAndGivenBackAsItWas)
{
    const TempFolder folder;
    const BoardConsole board({}, folder.path());
    const auto refusal = [&](const std::string& name) -> std::string {
        try {
            make_target(name, {})->begin({});
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "none";
    };
    {
        const auto target = make_target("serial:" + board.name(), {});
        target->begin({});
        EXPECT_THAT(refusal("serial:" + board.name()), HasSubstr("in use"));
    }
    termios after = {};
    EXPECT_EQ(tcgetattr(board.settings(), &after), 0);
    EXPECT_EQ(after.c_cc[VMIN], 7);
    EXPECT_EQ(cfgetospeed(&after), speed_t(B9600));
    EXPECT_THAT(refusal("serial:/dev/null"), HasSubstr("no serial port or terminal"));
    EXPECT_THAT(refusal("serial:/dev/tty,1200"), HasSubstr("115200"));
    EXPECT_THAT(refusal("telnet:127.0.0.1:99999"), HasSubstr("65535"));
    EXPECT_THAT(refusal("ssh:-oProxyCommand=true"), HasSubstr("HOST"));
    EXPECT_THAT(refusal("ssh:root@-x"), HasSubstr("HOST"));
}

// A program beside the test, ended by its number.
class Beside {
public:
    explicit Beside(Words words)
    {
        int input[2];
        if (pipe2(input, O_CLOEXEC) < 0) abort();
        pid_ = fork();
        if (pid_ < 0) abort();
        if (pid_ == 0) {
            dup2(input[0], STDIN_FILENO);
            for (int number : {SIGINT, SIGQUIT}) signal(number, SIG_DFL);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            std::vector<char*> argv;
            for (std::string& word : words) argv.push_back(word.data());
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(input[0]);
        input_ = input[1];
    }
    ~Beside()
    {
        close(input_);
        end();
    }
    Beside(const Beside&) = delete;
    Beside& operator=(const Beside&) = delete;
    void end()
    {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

private:
    pid_t pid_ = 0;
    int input_ = -1;
};

std::string free_port()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    if (bind(fd, reinterpret_cast<sockaddr*>(&place), size) < 0) abort();
    getsockname(fd, reinterpret_cast<sockaddr*>(&place), &size);
    close(fd);
    return std::to_string(ntohs(place.sin_port));
}

// Tries until it begins: a server needs a moment to listen.
std::unique_ptr<Target> begun(const std::string& name)
{
    for (int attempt = 0;; ++attempt) {
        auto target = make_target(name, {});
        try {
            target->begin({});
            return target;
        } catch (const std::runtime_error&) {
            if (attempt == 100) throw;
            usleep(100000);
        }
    }
}

// An ssh server with keys of its own, and a client in the path that knows them; `command` takes each session.
class SshServer {
public:
    explicit SshServer(const std::string& command = "")
    {
        const std::string f = folder_.path();
        EXPECT_EQ(say("for k in host id; do ssh-keygen -q -t ed25519 -N '' -f " + f + "/$k; done").status, 0);
        folder_.write("sshd", "Port " + port_ + "\nListenAddress 127.0.0.1\nHostKey " + f +
                                  "/host\nAuthorizedKeysFile " + f +
                                  "/id.pub\nPidFile none\nStrictModes no\n" +
                                  "UsePAM no\nPasswordAuthentication no\n" +
                                  (command.empty() ? "" : "ForceCommand " + command + "\n"));
        know(folder_.read("host.pub"));
        folder_.write("config",
                      "User " + say("id -un").text + "IdentityFile " + f +
                          "/id\nIdentitiesOnly yes\nGlobalKnownHostsFile none\nUserKnownHostsFile " + f +
                          "/known\n");
        folder_.write("bin/ssh", "#!/bin/sh\nexec /usr/bin/ssh -F " + f + "/config \"$@\"\n");
        chmod((folder_ / "bin/ssh").c_str(), 0755);
        setenv("PATH", (folder_ / "bin:" + getenv("PATH")).c_str(), 1);
        if (geteuid() == 0)
            mkdir("/run/sshd", 0755); // as the service does at its start; sshd wants it of root
        server_.emplace(Words{"/usr/sbin/sshd", "-D", "-e", "-f", folder_ / "sshd"});
    }
    void know(const std::string& key) const { folder_.write("known", "[127.0.0.1]:" + port_ + " " + key); }
    [[nodiscard]] std::string name() const
    {
        std::string user = say("id -un").text;
        user.pop_back();
        return "ssh:" + user + "@127.0.0.1:" + port_;
    }

private:
    TempFolder folder_;
    std::string port_ = free_port();
    std::optional<Beside> server_;
};

TEST(Ssh, ProgramsHaveTheirStatusBothStreamsAndAnInterrupt)
{
    const SshServer server;
    const auto target = begun(server.name());
    Outcome outcome = on_board(*target, "echo a; echo b >&2; exit 255");
    EXPECT_EQ(outcome.out + outcome.err, "a\nb\n");
    EXPECT_EQ(outcome.kind, Outcome::ended) << outcome.reason;
    EXPECT_EQ(outcome.status, 255);
    outcome = on_board(*target, "trap 'echo back; exit 3' INT; echo on; while :; do sleep 0.1; done", 8);
    EXPECT_EQ(outcome.kind, Outcome::hung);
    EXPECT_EQ(outcome.out, "on\nback\n");
    bool ignores = false; // from when on it may be interrupted
    outcome = target->run({"sh", "-c", "trap '' INT; echo on; sleep 1000"}, {.seconds = 100, .grace_s = 1},
                          {.output = [&](auto) { ignores = true; }, .tick = [&] { return !ignores; }});
    EXPECT_EQ(outcome.kind, Outcome::interrupted);
    EXPECT_THAT(outcome.reason, HasSubstr("was killed"));
    outcome = on_board(*target, "kill -9 $PPID; sleep 20");
    EXPECT_EQ(outcome.kind, Outcome::lost) << outcome.reason;
    EXPECT_EQ(on_board(*target, "echo again").out, "again\n");
    server.know("ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\n");
    for (const char* advice : {"ssh-keygen -R", "not in known_hosts"}) {
        try {
            make_target(server.name(), {})->begin({});
            ADD_FAILURE() << advice;
        } catch (const std::runtime_error& e) {
            EXPECT_THAT(e.what(), HasSubstr(advice));
        }
        server.know("\n");
    }
}

// A camera with nothing wired to its lines, over each kind of target.
TEST(EachTarget, RunsTheLineWithTheSameVerdicts)
{
    const TempFolder folder;
    const std::string camera = folder / "camera", vcam = VCAM;
    ASSERT_EQ(say(vcam + " new " + camera).status, 0);
    const Beside running({vcam, "run", camera, "--", "/bin/sh", "-c", "read end"});
    for (int i = 0; i < 100 && say(vcam + " exec " + camera + " -- true 2>&1").status; ++i) usleep(100000);
    const std::string script = folder.write("shell", "#!/bin/sh\nexec " + vcam + " shell " + camera + "\n");
    const std::string session = folder.write("session", "#!/bin/sh\nexec " + vcam + " exec " + camera +
                                                            " -- /bin/sh -c \"$SSH_ORIGINAL_COMMAND\"\n");
    for (const std::string& name : {script, session}) chmod(name.c_str(), 0755);
    const std::string port = free_port();
    const Beside telnetd({"busybox", "telnetd", "-F", "-b", "127.0.0.1:" + port, "-l", script});
    const SshServer sshd(session);
    Ways ways;
    ways.shell = "exec " + script;
    const BoardConsole board(ways, folder.path());
    for (const std::string& name :
         {"vcam:" + camera, "serial:" + board.name(), "telnet:127.0.0.1:" + port, sshd.name()}) {
        if (!name.starts_with("vcam:")) begun(name); // the server listens
        const Said said =
            say(std::string(ZEP_STATION) + " run " + name +
                " --yes --only 'real-time clock' --only 'digital lines' --only LEDs --json - 2>&1");
        EXPECT_EQ(said.status, 1) << name;
        const auto report = nlohmann::json::parse(said.text, nullptr, false);
        ASSERT_FALSE(report.is_discarded()) << name << said.text;
        std::string verdicts;
        for (const auto& test : report["tests"])
            if (test["reason"] != "not named by --only") verdicts += test["verdict"].get<std::string>() + " ";
        EXPECT_EQ(verdicts, "passed failed passed ") << name << said.text;
    }
}

} // namespace
