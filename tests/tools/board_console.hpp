// The far end of a serial port: a pseudo-terminal whose other side plays a board, with a real shell in it.
#pragma once

#include "tests/support/temp_folder.hpp"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// What the line and the board do. Counts are bytes; 0 for never.
struct Ways {
    std::string login = {}, password = {};                        // empty: a shell without login
    std::string boot = {};                                        // written first, and at a reset
    int drop_up = 0, drop_down = 0, garble_up = 0, kernel_up = 0; // each n-th byte to and from the station
    std::string typed = {};                                       // before the station comes
    bool loader = false; // no system: each line is an unknown command
    std::string shell = "exec /bin/sh -i";
};

// A program on the board asks for what befalls it by a file in `folder`: reset, mute or unplug.
class BoardConsole {
public:
    BoardConsole(const Ways& ways, std::string folder) : ways_(ways), folder_(std::move(folder))
    {
        char name[64];
        termios raw = {};
        cfmakeraw(&raw);
        cfsetspeed(&raw, B9600);
        raw.c_cc[VMIN] = 7; // that a test finds again
        if (openpty(&line_, &far_, name, &raw, nullptr) < 0) abort();
        name_ = name;
        child_ = fork();
        if (child_ < 0) abort(); // it must never be signalled
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            signal(SIGCHLD, SIG_IGN); // shells that end leave nothing
            live();
        }
        close(line_);
    }
    ~BoardConsole()
    {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
        close(far_);
    }
    BoardConsole(const BoardConsole&) = delete;
    BoardConsole& operator=(const BoardConsole&) = delete;
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] int settings() const { return far_; }

private:
    [[noreturn]] void live()
    {
        start();
        for (;;) {
            pollfd wait[2] = {{line_, POLLIN, 0}, {shell_, POLLIN, 0}};
            poll(wait, 2, 20);
            if (wait[0].revents) take(bytes_of(line_));
            if (wait[1].revents) from_shell();
            if (befalls("unplug")) _exit(0);
            if (befalls("mute")) muted_ = true;
            if (befalls("reset")) start();
        }
    }
    bool befalls(const char* what) { return unlink((folder_ + "/" + what).c_str()) == 0; }
    static std::string bytes_of(int fd)
    {
        char bytes[512];
        const ssize_t n = read(fd, bytes, sizeof bytes);
        return {bytes, size_t(n > 0 ? n : 0)};
    }
    void start()
    {
        if (shell_ >= 0) close(shell_);
        shell_ = -1;
        for (char c : ways_.boot) {
            up({&c, 1});
            if (c == '\n') usleep(30000);
        }
        prompt();
    }
    void prompt()
    {
        name_line_.clear();
        named_ = false;
        if (ways_.loader)
            up("boot # ");
        else if (!ways_.login.empty())
            up("\r\ncamera login: ");
        else
            open_shell();
    }
    void open_shell()
    {
        if (forkpty(&shell_, nullptr, nullptr, nullptr) == 0) {
            for (int number : {SIGINT, SIGQUIT, SIGTSTP, SIGTERM, SIGCHLD}) signal(number, SIG_DFL);
            setenv("PS1", "# ", 1);
            execl("/bin/sh", "sh", "-c", ways_.shell.c_str(), nullptr);
            _exit(127);
        }
        send(ways_.typed);
    }
    void from_shell()
    {
        const std::string bytes = bytes_of(shell_);
        if (!bytes.empty()) return up(bytes);
        usleep(100000); // as init waits before it starts a shell again
        close(shell_);
        shell_ = -1;
        prompt();
    }
    void send(const std::string& bytes) const
    {
        if (write(shell_, bytes.data(), bytes.size()) < 0) return; // a shell that has gone
    }
    void take(const std::string& bytes)
    {
        std::string kept;
        for (char c : bytes)
            if (!ways_.drop_down || ++down_count_ % ways_.drop_down) kept += c;
        if (shell_ >= 0) return send(kept);
        for (char c : kept) log_in(c);
    }
    void log_in(char c)
    {
        if (c != '\r') {
            if (!named_) up({&c, 1});
            name_line_ += c;
            return;
        }
        up("\r\n");
        const std::string line = std::exchange(name_line_, "");
        if (ways_.loader) {
            up(line.empty() ? "boot # " : "Unknown command '" + line + "' - try 'help'\r\nboot # ");
        } else if (named_) {
            const bool right = user_ == ways_.login && line == ways_.password;
            up(right ? "Welcome\r\n" : "Login incorrect\r\n");
            right ? open_shell() : prompt();
        } else if (line.empty()) {
            prompt();
        } else {
            user_ = line;
            named_ = true;
            up("Password: ");
        }
    }
    void up(const std::string& bytes)
    {
        std::string out;
        for (char c : bytes) {
            ++up_count_;
            if (ways_.kernel_up && up_count_ % ways_.kernel_up == 0)
                out += "[   12.345678] eth0: link up\r\n";
            if (ways_.garble_up && up_count_ % ways_.garble_up == 0) c ^= 4;
            if (!ways_.drop_up || up_count_ % ways_.drop_up) out += c;
        }
        for (size_t at = 0; at < out.size() && !muted_;) {
            const ssize_t n = write(line_, out.data() + at, out.size() - at);
            if (n > 0)
                at += size_t(n);
            else if (errno != EINTR)
                return;
        }
    }

    const Ways ways_;
    const std::string folder_;
    std::string name_, name_line_, user_;
    int line_ = -1, far_ = -1, shell_ = -1;
    int up_count_ = 0, down_count_ = 0;
    bool named_ = false, muted_ = false;
    pid_t child_ = 0;
};
