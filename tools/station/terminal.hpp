// The station's side of a console: what came, what is typed, and the time that goes by.
#pragma once

#include "tools/station/target/child.hpp"
#include "tools/station/target/wire.hpp"

namespace station {

class Terminal {
public:
    explicit Terminal(std::unique_ptr<Wire> wire) : wire_(std::move(wire)) {}

    void open(double seconds, const Watch& watch) { wire_->open(seconds, watch); }
    [[nodiscard]] std::string host() const { return wire_->host(); }
    // Asked ten times a second from now on, until another is given; null for none.
    void attend(const Watch* watch);
    // The watch has said false since attend().
    [[nodiscard]] bool stopped() const { return stopped_; }

    // What came since clear().
    [[nodiscard]] const std::string& text() const { return text_; }
    void clear()
    {
        text_.clear();
        flooded_ = false;
    }
    // So much came since clear() that only the last of it was kept.
    [[nodiscard]] bool flooded() const { return flooded_; }
    // Since the last byte or send(), the later one.
    [[nodiscard]] double quiet_s() const { return seconds_since(std::max(received_, sent_)); }
    // When the last byte came, if later than an answer to what was sent.
    [[nodiscard]] Clock::time_point spoke_at() const
    {
        return received_ > sent_ + std::chrono::seconds(1) ? received_ : Clock::time_point();
    }

    // Waits at most wait_ms for bytes. All of these throw Broken.
    void pump(int wait_ms);
    // Pumps until `done` or for so long.
    bool wait(double seconds, const std::function<bool()>& done);
    // Until nothing has come for so long; false when bytes still come after `most` seconds.
    bool settle(double quiet, double most);
    void send(std::string_view bytes);
    // Types a line without its end, piece by piece, each once the one before has come back: the far end's buffer is
    // never full. False when a piece came back otherwise or not: the far end may stand before a part of it then.
    bool type(std::string_view line);

private:
    std::unique_ptr<Wire> wire_;
    const Watch* watch_ = nullptr;
    bool stopped_ = false, flooded_ = false;
    std::string text_;
    Clock::time_point received_ = Clock::now(), sent_ = received_, next_tick_ = received_;
};

} // namespace station
