// The station's side of a console: what came, what is typed, and the time that goes by.
#include "tools/station/terminal.hpp"
#include "tools/station/target/console_text.hpp"

namespace station {
namespace {

constexpr int kSliceMs = 100;
constexpr size_t kBurst = 32; // below the receive buffer of small serial ports with their interrupt late
constexpr size_t kMostText = 4 << 20, kKeptText = 64 << 10;
constexpr double kEchoSeconds = 0.5; // a later echo costs a second try only

} // namespace

void Terminal::attend(const Watch* watch)
{
    watch_ = watch;
    stopped_ = false;
}

void Terminal::pump(int wait_ms)
{
    const std::string piece = wire_->read(std::min(wait_ms, kSliceMs));
    if (!piece.empty()) received_ = Clock::now();
    text_ += piece;
    if (text_.size() > kMostText) {
        text_.erase(0, text_.size() - kKeptText);
        flooded_ = true;
    }
    if (Clock::now() < next_tick_) return;
    next_tick_ = Clock::now() + std::chrono::milliseconds(kSliceMs);
    if (watch_ && !watch_->tick()) stopped_ = true;
}

bool Terminal::wait(double seconds, const std::function<bool()>& done)
{
    const auto begin = Clock::now();
    while (!done()) {
        if (seconds_since(begin) > seconds) return false;
        pump(kSliceMs);
    }
    return true;
}

bool Terminal::settle(double quiet, double most)
{
    return wait(most, [&] { return quiet_s() >= quiet; });
}

void Terminal::send(std::string_view bytes)
{
    wire_->write(bytes);
    sent_ = Clock::now();
}

bool Terminal::type(std::string_view line)
{
    for (size_t at = 0; at < line.size(); at += kBurst) {
        const std::string_view piece = line.substr(at, kBurst);
        clear();
        send(piece);
        const std::string expected = unedited(piece);
        if (!wait(kEchoSeconds, [&] { return unedited(text_).ends_with(expected); })) return false;
    }
    return true;
}

} // namespace station
