// The fixed-ratio resamplers: response, tone quality, delay and cost, all through 16-bit samples.
//
//   bench_rs [--points N] [--reps ROUNDS] [--only NAME] [--cost-only] [--svg FILE] [--impl LIB]...
//
// Tones have whole numbers of cycles in kSpan periods of the lower rate ("low"), so that every component of
// an output is found by correlation over kSpan periods. They last long enough for the slowest peer to settle.
#include "bench/dsp/peers/peers.hpp"
#include "bench/dsp/plot.hpp"
#include "bench/dsp/util.hpp"
#include <cmath>
#include <deque>

using namespace zep::bench;

namespace {

constexpr int kSpan = 2000, kSettle = 3000;
constexpr double kLoud = 29000, kMedium = 16000;

struct Ratio {
    int up, down;
    int in_rate() const { return 8000 * down; }
    int out_rate() const { return 8000 * up; }
};
constexpr Ratio kRatios[] = {{2, 1}, {1, 2}, {4, 1}, {1, 4}, {6, 1}, {1, 6}};

double db(double ratio) { return 20 * log10(std::max(ratio, 1e-9)); }

struct Component {
    double amplitude, phase;
};

// One resampler at one ratio.
class Rig {
public:
    Rig(const vd_resampler& r, Ratio q, int points) : resampler_(r), q_(q), points_(points) {}

    // kSpan settled periods of what a tone becomes.
    std::vector<double> tone(int cycles, double amplitude) const
    {
        const int frames = ((kSettle + kSpan) * q_.down + points_ - 1) / points_;
        const double w = 2 * M_PI * cycles / kSpan / q_.down;
        Samples in(static_cast<size_t>(points_)), out(size_t(points_ * q_.up / q_.down));
        std::vector<double> all;
        void* state = resampler_.open(q_.in_rate(), q_.out_rate(), points_);
        for (int f = 0, at = 0; f < frames; ++f) {
            for (auto& s : in) s = int16_t(lrint(amplitude * sin(w * at++)));
            if (resampler_.process(state, in.data(), points_, out.data()) != int(out.size())) {
                fprintf(stderr, "%s: not the agreed number of points\n", resampler_.name);
                exit(1);
            }
            all.insert(all.end(), out.begin(), out.end());
        }
        resampler_.close(state);
        return {all.begin() + kSettle * q_.up, all.begin() + (kSettle + kSpan) * q_.up};
    }

    Component component(const std::vector<double>& y, int cycles) const
    {
        const double w = 2 * M_PI * cycles / kSpan / q_.up;
        double s = 0, c = 0;
        for (size_t i = 0; i < y.size(); ++i) {
            s += y[i] * sin(w * double(i));
            c += y[i] * cos(w * double(i));
        }
        // kSettle is not a multiple of kSpan: the window starts at another phase than the input.
        const double start = 2 * M_PI * cycles * (double(kSettle) / kSpan);
        return {2 * hypot(s, c) / double(y.size()), atan2(c, s) - start};
    }

    // What is not the tone, against the tone that was sent.
    double rest(int cycles, double amplitude) const
    {
        const auto y = tone(cycles, amplitude);
        const double a = component(y, cycles).amplitude;
        double all = 0;
        for (double v : y) all += v * v;
        return sqrt(std::max(2 * all / double(y.size()) - a * a, 0.)) / amplitude;
    }

    double level(int cycles, double amplitude) const
    {
        double all = 0;
        const auto y = tone(cycles, amplitude);
        for (double v : y) all += v * v;
        return sqrt(2 * all / double(y.size())) / amplitude;
    }

    Ratio ratio() const { return q_; }
    int points() const { return points_; }
    const vd_resampler& resampler() const { return resampler_; }

private:
    const vd_resampler& resampler_;
    Ratio q_;
    int points_;
};

struct Quality {
    double ripple_db, stop_db, edge_db, snr1_db, snr3_db;
    double delay, bend; // delay in periods of low; radians from linear phase
};

double wrapped(double phase) { return remainder(phase, 2 * M_PI); }

// Delay from the phases at increasing distances, each step resolved by the one before it.
double delay_of(const Rig& rig)
{
    const auto phase = [&](int cycles) { return rig.component(rig.tone(cycles, kMedium), cycles).phase; };
    const double from = phase(100);
    double delay = 0;
    for (int step : {1, 15, 200, 780}) {
        const double expected = -2 * M_PI * step / kSpan * delay;
        const double apart = expected + wrapped(phase(100 + step) - from - expected);
        delay = -apart * kSpan / (2 * M_PI * step);
        if (delay < 0) delay += kSpan; // the first step alone can turn
    }
    return delay;
}

Quality quality_of(const Rig& rig)
{
    Quality q{};
    const Ratio r = rig.ratio();
    double least = 1e9, most = -1e9, stop = 0, edge = 0;
    q.delay = delay_of(rig);
    for (int i = 1; i <= 45; ++i) { // to 0.45 low
        const int cycles = std::min(20 * i + 1, kSpan * 45 / 100);
        const Component c = rig.component(rig.tone(cycles, kMedium), cycles);
        least = std::min(least, db(c.amplitude / kMedium));
        most = std::max(most, db(c.amplitude / kMedium));
        q.bend = std::max(q.bend, fabs(wrapped(c.phase + 2 * M_PI * cycles / kSpan * q.delay)));
        if (r.up > 1) stop = std::max(stop, rig.rest(cycles, kMedium));
    }
    for (int i = 0; r.down > 1 && i < 60; ++i) // what folds below 0.45 low, and what lands above it
        stop = std::max(stop, rig.level(int(kSpan * (.55 + (.5 * r.down - .56) * i / 59)) + 1, kLoud));
    for (double f : {.465, .48, .495})
        edge = std::max(edge,
                        r.up > 1 ? rig.rest(int(kSpan * f), kLoud) : rig.level(int(kSpan * (1 - f)), kLoud));
    q.ripple_db = most - least;
    q.stop_db = db(stop);
    q.edge_db = db(edge);
    q.snr1_db = -db(rig.rest(kSpan / 8 + 1, kLoud));
    q.snr3_db = -db(rig.rest(kSpan * 3 / 8 + 1, kLoud));
    return q;
}

// A resampler at work on a tone.
class Load {
public:
    explicit Load(const Rig& rig)
        : resampler_(rig.resampler()), points_(rig.points()), x_(size_t(kFrames * points_)),
          y_(size_t(points_ * 8)),
          state_(resampler_.open(rig.ratio().in_rate(), rig.ratio().out_rate(), points_))
    {
        for (size_t i = 0; i < x_.size(); ++i)
            x_[i] = int16_t(lrint(12000 * sin(2 * M_PI * 1000.3 * double(i) / rig.ratio().in_rate())));
    }
    Load(const Load&) = delete;
    ~Load() { resampler_.close(state_); }

    void run()
    {
        for (int i = 0; i < kCalls; ++i)
            resampler_.process(state_, &x_[size_t(i % kFrames * points_)], points_, y_.data());
    }
    static constexpr int kCalls = 400;

private:
    static constexpr int kFrames = 8;
    const vd_resampler& resampler_;
    int points_;
    Samples x_, y_;
    void* state_;
};

// Nanoseconds an output point of each, all in turn.
std::vector<double> costs_of(const std::vector<Rig>& rigs, int rounds)
{
    std::deque<Load> loads;
    std::vector<std::function<void()>> jobs;
    for (const Rig& rig : rigs) {
        Load& load = loads.emplace_back(rig);
        jobs.push_back([&load] { load.run(); });
    }
    std::vector<double> ns = times_in_turn(jobs, rounds);
    for (size_t k = 0; k < ns.size(); ++k) {
        const Ratio q = rigs[k].ratio();
        ns[k] *= 1e9 / (double(Load::kCalls) * rigs[k].points() * q.up / q.down);
    }
    return ns;
}

// |H| of the filter that stands at the higher rate: going up the images of the tones below low/2, going down
// what is left of the tones up to half the higher rate.
Curve response_of(const Rig& rig)
{
    const Ratio q = rig.ratio();
    const int half = kSpan / 2 * std::max(q.up, q.down);
    Curve curve{rig.resampler().name, {}};
    for (int at = 3; at < half; at += half / 280) {
        const int folded = std::abs(int(lrint(double(at) / kSpan)) * kSpan - at);
        if (folded == 0 || 2 * folded == kSpan) continue;
        const int in = q.up > 1 ? folded : at, out = q.up > 1 ? at : folded;
        curve.points.push_back(
            {double(at) / kSpan, db(rig.component(rig.tone(in, kLoud), out).amplitude / kLoud)});
    }
    return curve;
}

void print_heading(Ratio q, int points)
{
    printf("\n%d -> %d, %d in-points a frame\n%-12s %9s %8s %8s %7s %7s %9s %6s %8s %7s %8s %7s\n",
           q.in_rate(), q.out_rate(), points, "who", "ripple dB", "stop dB", "edge dB", "SNR 1k", "SNR 3k",
           "low delay", "ms", "lin.ph", "ns/out", "cyc/out", "at 3GHz");
}

void print(const Rig& rig, const Quality* q, double ns, double ghz)
{
    printf("%-12s", rig.resampler().name);
    if (q)
        printf(" %9.4f %8.1f %8.1f %7.1f %7.1f %9.2f %6.2f %8.1e", q->ripple_db, q->stop_db, q->edge_db,
               q->snr1_db, q->snr3_db, q->delay, q->delay / 8, q->bend);
    else
        printf(" %69s", "");
    printf(" %7.2f %8.1f %7.2f\n", ns, ns * ghz, ns * ghz / 3);
    fflush(stdout);
}

bool plotted(const char* name)
{
    for (const char* one : {"zep", "soxr-HQ", "speex-8", "zita-48"})
        if (!strcmp(name, one)) return true;
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    options.pin();
    const std::string only = options.text("--only", "");
    const char* svg = options.text("--svg", nullptr);
    const double ghz = core_ghz();
    printf(
        "# clock %.2f GHz; low = 8000 Hz; ns and cycles an output point\n"
        "# ripple to 0.45 low; stop: all that is not the tone (up, rounding included), all that is left of "
        "tones from 0.55 low (down);\n# edge: the same for tones within 0.035 low of low/2\n",
        ghz);
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_rs());
    std::vector<Panel> panels;
    for (const Ratio q : kRatios) {
        const int points = options.number("--points", q.up > 1 ? 160 : 240);
        print_heading(q, points);
        Panel panel{std::to_string(q.in_rate()) + " to " + std::to_string(q.out_rate()) + " Hz", {}};
        std::vector<Rig> rigs;
        for (const vd_impl* impl : impls)
            for (int i = 0; i < impl->nresamplers; ++i)
                if (std::string(impl->resamplers[i].name).starts_with(only))
                    rigs.emplace_back(impl->resamplers[i], q, points);
        const std::vector<double> ns = costs_of(rigs, options.number("--reps", 9));
        for (size_t k = 0; k < rigs.size(); ++k) {
            const bool measured = !options.flag("--cost-only");
            const Quality quality = measured ? quality_of(rigs[k]) : Quality{};
            print(rigs[k], measured ? &quality : nullptr, ns[k], ghz);
            if (svg && plotted(rigs[k].resampler().name)) panel.curves.push_back(response_of(rigs[k]));
        }
        panels.push_back(panel);
    }
    if (svg) write_svg(svg, panels, {"frequency, in units of the lower rate", "response, dB", -140, 10, 20});
}
