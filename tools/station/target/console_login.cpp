// From whatever a console shows to the prompt of a shell.
#include "tools/station/target/console_login.hpp"
#include "tools/station/target/console_text.hpp"
#include "tools/station/text.hpp"

#include <fstream>

namespace station {
namespace {

constexpr double kPause = 0.3;         // a prompt stands, or a program is silent
constexpr double kAnswerSeconds = 1.5; // of a shell
constexpr int kLogins = 4;             // a name or a password may get lost on the way

class Login {
public:
    Login(Terminal& terminal, const std::string& name, const Access& access)
        : terminal_(terminal), name_(name), access_(access)
    {
    }
    // Whether a shell answers.
    bool step();
    [[nodiscard]] bool logged_in() const { return logins_ > 0; }

private:
    [[noreturn]] void fail(const std::string& why) const { throw std::runtime_error(name_ + ": " + why); }
    void check_time();
    void type_name();
    void type_password();
    bool try_shell();

    Terminal& terminal_;
    const std::string& name_;
    const Access& access_;
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point heard_ = begin_; // a byte that answers nothing
    bool asked_ = false;               // the Enter went out whose answer is looked at
    int logins_ = 0, unanswered_ = 0;
};

void Login::check_time()
{
    if (terminal_.stopped()) fail("interrupted");
    if (terminal_.flooded()) fail("the console writes without end");
    if (seconds_since(heard_) < access_.connect_s && seconds_since(begin_) < kLongestBoot * access_.connect_s)
        return;
    const std::string shown = harmless_line(last_line(terminal_.text()));
    fail("no login and no shell answers" + (shown.empty()
                                                ? std::string("; is the board on, and the speed right?")
                                                : "; the console shows: " + shown));
}

void Login::type_name()
{
    if (++logins_ > kLogins)
        fail("refuses the login of '" + access_.user + "'; give another user or password");
    terminal_.clear();
    terminal_.send(access_.user + "\r");
}

void Login::type_password()
{
    terminal_.clear();
    if (!logged_in()) return terminal_.send("\r"); // somebody else's login
    if (access_.password_file.empty()) fail("asks for a password; give a file with it by --password-file");
    std::ifstream file(access_.password_file);
    std::string password;
    if (!getline(file, password)) fail("no password can be read from " + access_.password_file);
    terminal_.send(password + "\r");
}

bool Login::try_shell()
{
    asked_ = !asked_;
    if (asked_) {
        terminal_.clear();
        terminal_.send("\r");
        return false;
    }
    if (ask_session(terminal_, "") != Session::none) return true;
    if (terminal_.text().find("Unknown command") != std::string::npos)
        fail("the boot loader answers, no shell; let the board start its system");
    if (++unanswered_ % 2 == 0) terminal_.send("\x03"); // a program stands in the foreground
    return false;
}

bool Login::step()
{
    const bool quiet = terminal_.settle(kPause, 2);
    heard_ = std::max(heard_, terminal_.spoke_at());
    check_time();
    if (!quiet) return false;
    switch (prompt_of(terminal_.text())) {
    case Prompt::login:
        type_name();
        return false;
    case Prompt::password:
        type_password();
        return false;
    case Prompt::other:
        break;
    }
    if (!shows_boot(terminal_.text()) || terminal_.quiet_s() > kBootQuiet) return try_shell();
    terminal_.pump(100);
    return false;
}

} // namespace

Session ask_session(Terminal& terminal, const std::string& word)
{
    const std::string key = random_word();
    terminal.send("echo \"<\"\"" + key + ":$((6*7)):$zs>\"\r");
    const auto answered = [&](const std::string& end) {
        return terminal.text().find("<" + key + ":42:" + end) != std::string::npos;
    };
    if (!terminal.wait(kAnswerSeconds, [&] {
            const size_t at = terminal.text().find("<" + key + ":42:");
            return at != std::string::npos && terminal.text().find('>', at) != std::string::npos;
        }))
        return Session::none;
    return !word.empty() && answered(word + ">") ? Session::present : Session::fresh;
}

bool reach_shell(Terminal& terminal, const std::string& name, const Access& access)
{
    Login login(terminal, name, access);
    terminal.clear();
    while (!login.step()) {
    }
    return login.logged_in();
}

} // namespace station
