// One session: sends at the pace of sound, records, waits for the end of playing.
#include "tools/audio/session.hpp"

#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace zaudio {

namespace {

using std::chrono::duration_cast;

// Sound that the camera has in hand against delays of the network and of this computer; at most what its queue
// holds beside the output's own buffer.
constexpr double kLeadS = 1;
constexpr uint32_t kMaxLead = AUDIO_WIRE_QUEUE * 3 / 4;
constexpr auto kMeterEvery = std::chrono::milliseconds(200);
constexpr auto kMeterLineEvery = std::chrono::milliseconds(1000);
constexpr auto kTail =
    std::chrono::milliseconds(500); // what the output still holds when nothing waits any more

volatile sig_atomic_t interrupted = 0;

size_t columns()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col ? size.ws_col : 80;
}

class Session {
public:
    Session(const Options& options, int rate, const Job& job)
        : options_(options), job_(job), rate_(rate), points_(job.encode ? 160u : 320u),
          encoder_(options.type), decoder_(options.type),
          link_(options.host, options.port, std::chrono::seconds(options.limit_s),
                std::chrono::seconds(options.wait_s))
    {
        report_.recorded.rate = rate;
        report_.points = points_;
    }

    Report run()
    {
        link_.status(&report_.round_trip); // before the sound begins, which does not wait for it
        link_.start(job_.encode, {job_.encode, options_.type, rate_, options_.mic_in, options_.mic_volume,
                                  options_.adc_volume, options_.dac_volume});
        begin_ = meter_at_ = Clock::now();
        try {
            carry_sound();
        } catch (const std::runtime_error& e) {
            if (report_.recorded.samples.empty()) throw;
            report_.broken = e.what();
        }
        if (options_.meter) print_meter();
        if (options_.meter && terminal_) fputc('\n', stderr);
        return std::move(report_);
    }

private:
    void carry_sound()
    {
        while (!over()) {
            send_due();
            take(std::min(next_due(), meter_at_ + meter_period_));
            show_meter();
        }
        if (!job_.to_play.empty() && !interrupted) wait_until_played();
        report_.status = link_.stop();
        // What the camera had sent by then: an interrupted recording has it too.
        for (auto before = Clock::now(); auto message = link_.receive(before);) add(*message);
    }

    [[nodiscard]] size_t wanted() const
    {
        return size_t((job_.record_s + std::chrono::duration<double>(report_.late).count()) * rate_);
    }
    [[nodiscard]] bool all_sent() const { return played_ >= job_.to_play.size(); }
    [[nodiscard]] bool over() const
    {
        return interrupted || silent_ || (all_sent() && report_.recorded.samples.size() >= wanted());
    }

    [[nodiscard]] uint32_t lead() const
    {
        return std::min(kMaxLead, uint32_t(std::ceil(kLeadS * rate_ / points_)));
    }
    [[nodiscard]] Clock::duration time_of(uint64_t frames) const
    {
        return duration_cast<Clock::duration>(
            std::chrono::duration<double>(double(frames * points_) / rate_));
    }
    [[nodiscard]] Clock::time_point next_due() const
    {
        if (all_sent()) return Clock::now() + std::chrono::seconds(options_.limit_s);
        return begin_ + time_of(number_ > lead() ? number_ - lead() : 0);
    }

    void send_due()
    {
        while (!all_sent() && next_due() <= Clock::now()) {
            const size_t end = std::min(played_ + points_, job_.to_play.size());
            std::vector<int16_t> frame(job_.to_play.begin() + long(played_),
                                       job_.to_play.begin() + long(end));
            frame.resize(points_); // the last one is filled with silence
            const auto playing = begin_ + time_of(number_) + report_.late;
            report_.late += std::max(Clock::now() - playing, Clock::duration::zero());
            link_.send(AUDIO_WIRE_FRAME, number_++, encoder_.encode(std::move(frame)));
            played_ = end;
        }
    }

    void take(Clock::time_point until)
    {
        const auto message = link_.receive(until);
        if (!message) {
            if (!job_.encode || Clock::now() - last_heard() <= std::chrono::seconds(options_.limit_s)) return;
            if (report_.recorded.samples.size() < size_t(job_.record_s * rate_))
                throw std::runtime_error("the camera sends no sound");
            silent_ = true; // nothing more was late
            return;
        }
        heard_ = Clock::now();
        add(*message);
    }
    void add(const Message& message)
    {
        if (message.command != AUDIO_WIRE_FRAME) return;
        report_.lost += message.number - expected_;
        expected_ = message.number + 1;
        const std::vector<int16_t> samples = decoder_.decode(message.body);
        recent_.insert(recent_.end(), samples.begin(), samples.end());
        report_.recorded.samples.insert(report_.recorded.samples.end(), samples.begin(), samples.end());
    }
    [[nodiscard]] Clock::time_point last_heard() const { return heard_ ? *heard_ : begin_; }

    // A terminal's line is written over; elsewhere a line each second is enough.
    void show_meter()
    {
        if (Clock::now() < meter_at_ + meter_period_) return;
        meter_at_ = Clock::now();
        if (options_.meter) print_meter();
        recent_.clear();
    }
    void print_meter()
    {
        const std::vector<int16_t>& heard = recent_.empty() ? job_.to_play : recent_;
        for (int16_t sample : heard) peak_ = std::max(peak_, std::abs(int(sample)));
        const double peak = peak_ ? 20 * std::log10(peak_ / 32768.0) : -120;
        const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
        fprintf(stderr, terminal_ ? "\r%s\033[K" : "%s\n",
                meter_line(seconds, level_db(heard), peak, columns()).c_str());
    }

    // Throws when the camera plays nothing of what waits for as long as an answer may take.
    void wait_until_played()
    {
        uint32_t before = UINT32_MAX;
        auto until = Clock::now();
        for (uint32_t waiting; (waiting = link_.status().waiting) > 0; before = waiting) {
            if (waiting < before) until = Clock::now() + std::chrono::seconds(options_.limit_s);
            if (Clock::now() > until)
                throw std::runtime_error("the camera plays nothing of the " + std::to_string(waiting) +
                                         " messages that wait");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        std::this_thread::sleep_for(time_of(lead()) + kTail);
    }

    const Options& options_;
    const Job& job_;
    int rate_;
    uint32_t points_;
    Encoder encoder_;
    Decoder decoder_;
    Link link_;
    Report report_;
    Clock::time_point begin_, meter_at_;
    std::optional<Clock::time_point> heard_;
    size_t played_ = 0;     // samples sent
    uint32_t number_ = 0;   // of the next frame sent
    uint32_t expected_ = 0; // of the next frame received
    int peak_ = 0;
    bool silent_ = false;
    const bool terminal_ = isatty(STDERR_FILENO) != 0;
    const Clock::duration meter_period_ = terminal_ ? kMeterEvery : kMeterLineEvery;
    std::vector<int16_t> recent_;
};

} // namespace

void end_session_on_signals()
{
    for (int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, [](int) { interrupted = 1; });
}

Report run_session(const Options& options, int rate, const Job& job)
{
    return Session(options, rate, job).run();
}

} // namespace zaudio
