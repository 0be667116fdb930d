// A telnet connection as the line to a board's console (RFC 854): the far end echoes, nothing else is agreed on.
#include "tools/station/target/wire.hpp"
#include "tools/station/target/child.hpp"

#include "tools/cli/command_line.hpp"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace station {
namespace {

constexpr unsigned char kSe = 240, kSb = 250, kWill = 251, kWont = 252, kDo = 253, kDont = 254, kIac = 255;
constexpr unsigned char kEcho = 1, kSuppressGoAhead = 3;

// Takes commands out of what comes. They may be cut anywhere.
class Commands {
public:
    // Text for the reader; what must be answered is appended to `answer`.
    std::string take(std::string_view bytes, std::string& answer);

private:
    enum class State { text, cr, command, option, sub, sub_command };
    void step(unsigned char byte, std::string& text, std::string& answer);
    void answer_option(unsigned char option, std::string& answer);

    State state_ = State::text;
    unsigned char verb_ = 0;
    bool agreed_[2][256] =
        {}; // theirs, ours: an agreed option is not agreed on again, or both would answer for ever
};

// WILL and WONT speak of the far end, DO and DONT of this one.
void Commands::answer_option(unsigned char option, std::string& answer)
{
    const bool ours = verb_ == kDo || verb_ == kDont;
    const bool asked = verb_ == kDo || verb_ == kWill;
    const bool wanted = asked && (option == kSuppressGoAhead || (option == kEcho && !ours));
    bool& agreed = agreed_[ours][option];
    if (wanted == agreed && (wanted || !asked)) return;
    agreed = wanted;
    const unsigned char verb = ours ? (wanted ? kWill : kWont) : (wanted ? kDo : kDont);
    for (unsigned char byte : {kIac, verb, option}) answer += char(byte);
}

void Commands::step(unsigned char byte, std::string& text, std::string& answer)
{
    switch (state_) {
    case State::cr:
        state_ = State::text;
        if (byte == 0) return; // CR NUL is a CR
        [[fallthrough]];
    case State::text:
        if (byte == kIac) {
            state_ = State::command;
            return;
        }
        text += char(byte);
        if (byte == '\r') state_ = State::cr;
        return;
    case State::command:
        verb_ = byte;
        if (byte == kIac) text += char(byte);
        state_ = byte == kSb ? State::sub : byte >= kWill && byte <= kDont ? State::option : State::text;
        return;
    case State::option:
        answer_option(byte, answer);
        state_ = State::text;
        return;
    case State::sub:
        if (byte == kIac) state_ = State::sub_command;
        return;
    case State::sub_command:
        state_ = byte == kSe ? State::text : State::sub;
        return;
    }
}

std::string Commands::take(std::string_view bytes, std::string& answer)
{
    std::string text;
    for (char byte : bytes) step(static_cast<unsigned char>(byte), text, answer);
    return text;
}

class TelnetWire final : public Wire {
public:
    TelnetWire(std::string host, std::string port) : host_(std::move(host)), port_(std::move(port)) {}
    ~TelnetWire() override { close(); }
    void open(double seconds, const Watch& watch) override;
    std::string read(int wait_ms) override;
    void write(std::string_view bytes) override;
    [[nodiscard]] std::string host() const override { return host_; }

private:
    void close();
    bool connect_to(const addrinfo& place, Clock::time_point until, const Watch& watch);
    void send_all(std::string_view bytes);
    [[nodiscard]] std::string failure(const std::string& why) const
    {
        return "telnet:" + host_ + ":" + port_ + ": " + why;
    }
    [[noreturn]] void break_off(const std::string& why)
    {
        close();
        throw Broken(failure(why));
    }

    const std::string host_, port_;
    int fd_ = -1;
    Commands commands_;
};

void TelnetWire::close()
{
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

// False with errno.
bool TelnetWire::connect_to(const addrinfo& place, Clock::time_point until, const Watch& watch)
{
    close();
    fd_ = socket(place.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) return false;
    if (connect(fd_, place.ai_addr, place.ai_addrlen) == 0) return true;
    if (errno != EINPROGRESS) return false;
    pollfd wait = {fd_, POLLOUT, 0};
    while (poll(&wait, 1, 100) <= 0) {
        if (!watch.tick()) throw std::runtime_error(failure("interrupted"));
        errno = ETIMEDOUT;
        if (Clock::now() >= until) return false;
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size);
    errno = error;
    return error == 0;
}

void TelnetWire::open(double seconds, const Watch& watch)
{
    commands_ = Commands();
    addrinfo hints = {}, *list = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (const int error = getaddrinfo(host_.c_str(), port_.c_str(), &hints, &list))
        throw std::runtime_error(failure(std::string("no such host: ") + gai_strerror(error)));
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> places(list, freeaddrinfo);
    const auto until = Clock::now() + std::chrono::milliseconds(long(seconds * 1000));
    bool connected = false;
    for (const addrinfo* place = list; place && !connected; place = place->ai_next)
        connected = connect_to(*place, until, watch);
    if (!connected) {
        const int error = errno;
        close();
        throw std::runtime_error(failure(std::string("no connection: ") + strerror(error)));
    }
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::string TelnetWire::read(int wait_ms)
{
    if (fd_ < 0) throw Broken(failure("no connection"));
    pollfd wait = {fd_, POLLIN, 0};
    if (poll(&wait, 1, wait_ms) <= 0) return {};
    char bytes[4096];
    const ssize_t n = recv(fd_, bytes, sizeof bytes, 0);
    if (n == 0) break_off("the board closed the connection");
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return {};
    if (n < 0) break_off(strerror(errno));
    std::string answer, text = commands_.take({bytes, size_t(n)}, answer);
    send_all(answer);
    return text;
}

void TelnetWire::send_all(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n > 0) {
            bytes.remove_prefix(size_t(n));
            continue;
        }
        pollfd wait = {fd_, POLLOUT, 0};
        if (errno == EINTR || (errno == EAGAIN && poll(&wait, 1, 5000) > 0)) continue;
        break_off(errno == EAGAIN ? "the far end does not read" : strerror(errno));
    }
}

void TelnetWire::write(std::string_view bytes)
{
    if (fd_ < 0) throw Broken(failure("no connection"));
    std::string escaped;
    for (char byte : bytes) {
        escaped += byte;
        if (static_cast<unsigned char>(byte) == kIac) escaped += byte;
        if (byte == '\r') escaped += '\0';
    }
    send_all(escaped);
}

} // namespace

std::unique_ptr<Target> telnet_target(const std::string& address, const Access& access)
{
    std::string host = address, port = "23";
    const size_t colon = address.rfind(':');
    const bool bracket = address.starts_with('[');
    if (colon != address.npos && (bracket ? address[colon - 1] == ']' : address.find(':') == colon)) {
        host = address.substr(0, colon);
        port = address.substr(colon + 1);
    }
    if (bracket && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    try {
        cli::given(host);
        cli::whole_number(port, 1, 65535);
    } catch (const cli::WrongUse&) {
        throw cli::WrongUse("TARGET 'telnet:" + address +
                            "': give telnet:HOST[:PORT], a port from 1 to 65535");
    }
    return console_target(std::make_unique<TelnetWire>(host, port), "telnet:" + address, access);
}

} // namespace station
