// Carries connections and datagrams from sockets of one network space to the loopback of another.
#include "sim/sandbox/forward.hpp"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <list>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vcam {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kStarting = std::chrono::seconds(5); // a program of the camera may take so long to listen
constexpr auto kTryAgain = std::chrono::milliseconds(50);
constexpr auto kDrainTime = std::chrono::seconds(2); // for what the camera has sent before its end
constexpr size_t kPiece = 16 * 1024; // little, so that a station that stops reading is noticed
constexpr size_t kStations = 64;     // that send datagrams; of more the oldest is forgotten

sockaddr_in loopback(uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// A socket that is or will be connected to the camera's port.
Fd to_camera(uint16_t port, int type)
{
    Fd fd(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = loopback(port);
    if (fd && connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 &&
        errno != EINPROGRESS)
        return Fd();
    return fd;
}

// One direction of a connection.
class Half {
public:
    enum class Step { goes_on, broken };

    [[nodiscard]] short wants_read() const { return !ended_ && at_ == end_ ? POLLIN : 0; }
    [[nodiscard]] short wants_write() const { return at_ < end_ ? POLLOUT : 0; }
    [[nodiscard]] bool over() const { return ended_ && at_ == end_; }

    Step read_from(int fd)
    {
        const ssize_t n = recv(fd, bytes_.data(), bytes_.size(), 0);
        if (n < 0) return errno == EAGAIN || errno == EINTR ? Step::goes_on : Step::broken;
        at_ = 0;
        end_ = size_t(n);
        ended_ = n == 0;
        return Step::goes_on;
    }
    Step write_to(int fd)
    {
        const ssize_t n = send(fd, bytes_.data() + at_, end_ - at_, MSG_NOSIGNAL);
        if (n < 0) return errno == EAGAIN || errno == EINTR ? Step::goes_on : Step::broken;
        at_ += size_t(n);
        return Step::goes_on;
    }
    // Hands on the end of the one side once; the other side may still send.
    void pass_end(int fd)
    {
        if (!over() || passed_) return;
        shutdown(fd, SHUT_WR);
        passed_ = true;
    }

private:
    std::array<char, kPiece> bytes_;
    size_t at_ = 0, end_ = 0;
    bool ended_ = false, passed_ = false;
};

class Connection {
public:
    Connection(Fd station, uint16_t port, Clock::time_point give_up)
        : station_(std::move(station)), camera_(to_camera(port, SOCK_STREAM)), port_(port), give_up_(give_up)
    {
        const int on = 1;
        setsockopt(station_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    void add_to(std::vector<pollfd>& polls) const
    {
        polls.push_back(wanted(station_, connected_ ? out_.wants_read() | in_.wants_write() : 0));
        polls.push_back(wanted(camera_, connected_ ? in_.wants_read() | out_.wants_write() : POLLOUT));
    }
    // While true, somebody has to look again soon without an event.
    [[nodiscard]] bool waits_to_try() const { return !camera_; }

    // False when it is over. `out` is towards the camera.
    bool serve(short station, short camera)
    {
        if (!connected_) return connect_again(camera);
        const bool good = move(out_, station_.get(), station, camera_.get(), camera) &&
                          move(in_, camera_.get(), camera, station_.get(), station);
        if (!good) reset();
        return good && !(in_.over() && out_.over());
    }
    // The camera has ended: what it has sent is all that is still wanted.
    [[nodiscard]] bool still_sends() const { return connected_ && !in_.over(); }

private:
    // A side of which nothing is wanted is left out: a hang-up would wake poll again and again.
    static pollfd wanted(const Fd& fd, int events) { return {events ? fd.get() : -1, short(events), 0}; }

    static bool move(Half& half, int from, short from_events, int to, short to_events)
    {
        constexpr short kReadable = POLLIN | POLLHUP | POLLERR, kWritable = POLLOUT | POLLHUP | POLLERR;
        if (half.wants_read() && (from_events & kReadable) && half.read_from(from) == Half::Step::broken)
            return false;
        if (half.wants_write() && (to_events & kWritable) && half.write_to(to) == Half::Step::broken)
            return false;
        half.pass_end(to);
        return true;
    }

    bool connect_again(short events)
    {
        if (camera_ && !events) return true;
        int error = ECONNREFUSED;
        socklen_t length = sizeof error;
        if (camera_) getsockopt(camera_.get(), SOL_SOCKET, SO_ERROR, &error, &length);
        if (error == 0) {
            const int on = 1;
            setsockopt(camera_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            return connected_ = true;
        }
        if (Clock::now() > give_up_) {
            reset();
            return false;
        }
        // A refused socket is given up first, so that the next look waits a moment.
        camera_ = camera_ ? Fd() : to_camera(port_, SOCK_STREAM);
        return true;
    }

    // The station learns that it was no orderly end.
    void reset() const
    {
        const linger at_once = {1, 0};
        setsockopt(station_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }

    Fd station_, camera_;
    uint16_t port_;
    Clock::time_point give_up_;
    bool connected_ = false;
    Half out_, in_;
};

// A sender of datagrams and the socket that stands for it in the camera, so that answers find their way.
struct Station {
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    Fd camera;
};

class Datagrams {
public:
    Datagrams(int outside, uint16_t port) : outside_(outside), port_(port) {}

    void add_to(std::vector<pollfd>& polls) const
    {
        polls.push_back({outside_, POLLIN, 0});
        for (const Station& station : stations_) polls.push_back({station.camera.get(), POLLIN, 0});
    }
    // Errors are as in any network: the datagram is lost.
    void serve()
    {
        for (Station& station : stations_) answer(station);
        Station from;
        ssize_t n;
        while ((n = recvfrom(outside_, bytes_.data(), bytes_.size(), 0,
                             reinterpret_cast<sockaddr*>(&from.address), &from.length)) >= 0) {
            send(known(from).camera.get(), bytes_.data(), size_t(n), MSG_NOSIGNAL);
            from.length = sizeof from.address;
        }
    }

private:
    void answer(Station& station)
    {
        ssize_t n;
        while ((n = recv(station.camera.get(), bytes_.data(), bytes_.size(), 0)) >= 0)
            sendto(outside_, bytes_.data(), size_t(n), MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr*>(&station.address), station.length);
    }
    Station& known(const Station& from)
    {
        for (Station& station : stations_)
            if (station.length == from.length && memcmp(&station.address, &from.address, from.length) == 0)
                return station;
        if (stations_.size() == kStations) stations_.pop_front();
        stations_.push_back({from.address, from.length, to_camera(port_, SOCK_DGRAM)});
        return stations_.back();
    }

    int outside_;
    uint16_t port_;
    std::list<Station> stations_;
    std::array<char, 65536> bytes_;
};

class Forwarder {
public:
    Forwarder(std::vector<OpenPort>& ports, int over) : ports_(ports), over_(over)
    {
        for (OpenPort& port : ports_) datagrams_.emplace_back(port.datagrams.get(), port.port.inside);
    }

    void run()
    {
        while (!finished()) {
            gather();
            if (poll(polls_.data(), polls_.size(), timeout()) < 0) continue;
            serve();
        }
    }

private:
    void gather()
    {
        polls_.assign(1, {ending_ ? -1 : over_, POLLIN, 0});
        for (const OpenPort& port : ports_) polls_.push_back({ending_ ? -1 : port.listener.get(), POLLIN, 0});
        for (const Connection& connection : connections_) connection.add_to(polls_);
        for (const Datagrams& port : datagrams_) port.add_to(polls_);
    }
    [[nodiscard]] int timeout() const
    {
        bool soon = ending_;
        for (const Connection& connection : connections_) soon |= connection.waits_to_try();
        return soon ? int(kTryAgain.count()) : -1;
    }
    void serve()
    {
        size_t at = 1 + ports_.size();
        for (auto it = connections_.begin(); it != connections_.end(); at += 2)
            it = it->serve(polls_[at].revents, polls_[at + 1].revents) ? std::next(it)
                                                                       : connections_.erase(it);
        for (Datagrams& port : datagrams_) port.serve();
        for (size_t i = 0; i < ports_.size(); ++i)
            if (polls_[i + 1].revents) accept_from(ports_[i]);
        if (!polls_[0].revents) return;
        ending_ = true;
        last_ = Clock::now() + kDrainTime;
    }
    void accept_from(const OpenPort& port)
    {
        Fd station(accept4(port.listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (station) connections_.emplace_back(std::move(station), port.port.inside, started_ + kStarting);
    }
    [[nodiscard]] bool finished() const
    {
        if (!ending_ || Clock::now() > last_) return ending_;
        for (const Connection& connection : connections_)
            if (connection.still_sends()) return false;
        return true;
    }

    std::vector<OpenPort>& ports_;
    const int over_;
    const Clock::time_point started_ = Clock::now();
    Clock::time_point last_;
    bool ending_ = false;
    std::list<Connection> connections_;
    std::list<Datagrams> datagrams_;
    std::vector<pollfd> polls_;
};

} // namespace

void forward(std::vector<OpenPort>& ports, int over) { Forwarder(ports, over).run(); }

} // namespace vcam
