// Runs every echo canceller over every scenario of signals/mk_aec.py, keeps what came out for
// score/score_aec.py, draws how the echo falls and prints the cost of 10 ms.
//
//   run_aec [--signals DIR] [--out DIR] [--tail MS] [--cost-only] [--reps N] [--only NAME] [--svg FILE] [--impl
//   LIB]...
#include "bench/dsp/peers/peers.hpp"
#include "bench/dsp/plot.hpp"
#include "bench/dsp/util.hpp"

#include <cmath>
#include <sys/stat.h>

using namespace zep::bench;

namespace {

struct Setting {
    int rate, points;
    const char* tag;
};

constexpr Setting kSettings[] = {{8000, 80, "8k"}, {16000, 160, "16k"}};

struct Scenario {
    Samples near, far;
};

Scenario load(const std::string& path) { return {load_samples(path + ".mic"), load_samples(path + ".ref")}; }

std::vector<std::string> scenario_names(const std::string& tag)
{
    std::vector<std::string> names;
    for (const char* kind :
         {"nl_64", "near_0", "dtn_0", "drift10", "drift20", "drift50", "music", "clip16", "clip22", "jump"})
        names.push_back(tag + "_" + kind);
    for (const char* kind : {"st", "stn", "dt", "chg"})
        for (const char* ms : {"32", "64", "128"}) names.push_back(tag + "_" + kind + "_" + ms);
    return names;
}

// Empty when the canceller does not take the frame.
Samples cancel(const vd_aec& aec, const Setting& set, int tail_ms, const Scenario& s)
{
    void* state = aec.open(set.rate, set.points, tail_ms);
    if (!state) return {};
    Samples out(s.near.size());
    const size_t step = size_t(set.points);
    for (size_t i = 0; i + step <= out.size(); i += step)
        if (aec.process(state, &s.near[i], &s.far[i], &out[i], set.points) != 0) exit(1);
    aec.close(state);
    return out;
}

struct Cost {
    double mean, longest; // seconds a frame
};

// One round: the least time of each frame so far. Frames are too short for the clock of processor time; the least of
// the rounds drops what other processes took.
void time_frames(const vd_aec& aec, const Setting& set, int tail_ms, const Scenario& s,
                 std::vector<double>& least)
{
    void* state = aec.open(set.rate, set.points, tail_ms);
    if (!state) return;
    Samples out(size_t(set.points));
    for (size_t i = 0; i < least.size(); i++) {
        const size_t at = i * out.size();
        const double start = seconds();
        if (aec.process(state, &s.near[at], &s.far[at], out.data(), set.points) != 0) exit(1);
        least[i] = std::min(least[i], seconds() - start);
    }
    aec.close(state);
}

// In each round all cancellers take their turn, so that a core that slows down or is shared slows all of them and their
// ratios stay.
std::vector<Cost> costs(const std::vector<const vd_aec*>& all, const Setting& set, int tail_ms,
                        const Scenario& s, int rounds)
{
    std::vector<std::vector<double>> least(all.size(),
                                           std::vector<double>(s.near.size() / size_t(set.points), 1));
    for (int r = 0; r < rounds; r++)
        for (size_t k = 0; k < all.size(); k++) time_frames(*all[k], set, tail_ms, s, least[k]);
    std::vector<Cost> result;
    for (const auto& frames : least) {
        double sum = 0, most = 0;
        for (double t : frames) sum += t, most = std::max(most, t);
        result.push_back({sum / double(frames.size()), most});
    }
    return result;
}

void print_costs(const std::vector<const vd_aec*>& all, const std::string& signals, int tail_ms, int rounds)
{
    printf("# clock %.2f GHz, tail %d ms; us for 10 ms of signal and longest frame over mean, least of %d "
           "rounds, all "
           "cancellers in turn\n",
           core_ghz(), tail_ms, rounds);
    printf("%-18s %9s %9s %9s %9s\n", "who", "8k, 80", "longest", "16k, 160", "longest");
    std::vector<std::vector<Cost>> of;
    for (const Setting& set : kSettings)
        of.push_back(costs(all, set, tail_ms, load(signals + "/" + set.tag + "_dt_64"), rounds));
    for (size_t k = 0; k < all.size(); k++) {
        printf("%-18s", all[k]->name);
        for (const auto& cost : of)
            printf(" %9.2f %9.2f", 1e6 * cost[k].mean, cost[k].longest / cost[k].mean);
        printf("\n");
    }
}

// ERLE over sliding half seconds, dB.
Curve falling(const char* name, const Setting& set, const Samples& mic, const Samples& out)
{
    Curve curve = {name, {}};
    const size_t window = size_t(set.rate) / 2, hop = size_t(set.rate) / 8;
    for (size_t i = 0; i + window <= mic.size(); i += hop) {
        double before = 1, after = 1;
        for (size_t j = i; j < i + window; j++) {
            before += double(mic[j]) * mic[j];
            after += double(out[j]) * out[j];
        }
        curve.points.push_back({double(i + window / 2) / set.rate, 10 * std::log10(before / after)});
    }
    return curve;
}

void draw(const char* path, const std::vector<const vd_impl*>& impls, const std::string& signals, int tail_ms)
{
    const std::pair<const char*, const char*> kinds[] = {
        {"8k_st_64", "Speech, room of 64 ms, 8 kHz"},
        {"8k_chg_64", "Another room from 8 s on"},
        {"8k_drift50", "The loudspeaker's clock 50 ppm fast"},
        {"8k_music", "Music"},
        {"8k_dt_64", "Near talker from 8 to 16 s"},
        {"8k_clip16", "Loudspeaker cut off 16 dB below its peak"}};
    std::vector<Panel> panels;
    for (auto [kind, title] : kinds) {
        const Scenario s = load(signals + "/" + kind);
        panels.push_back({title, {}});
        for (const vd_impl* impl : impls)
            for (int k = 0; k < impl->naec; k++) {
                const Samples out = cancel(impl->aec[k], kSettings[0], tail_ms, s);
                panels.back().curves.push_back(falling(impl->aec[k].name, kSettings[0], s.near, out));
            }
    }
    write_svg(path, panels, {"seconds", "echo return loss enhancement, dB", -10, 70, 10});
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    const std::string signals = options.text("--signals", "signals/tune"), out = options.text("--out", "aec");
    const int tail_ms = options.number("--tail", 128);
    const std::string only = options.text("--only", "");
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_aec());
    options.pin();
    mkdir(out.c_str(), 0755);
    FILE* names = fopen((out + "/names").c_str(), "w");
    if (!names) return 1;
    std::vector<const vd_aec*> all;
    for (const vd_impl* impl : impls)
        for (int k = 0; k < impl->naec; k++) {
            const vd_aec& aec = impl->aec[k];
            if (only.compare(0, only.size(), aec.name, std::min(only.size(), strlen(aec.name))) != 0)
                continue;
            all.push_back(&aec);
            fprintf(names, "%s\n", aec.name);
            mkdir((out + "/" + aec.name).c_str(), 0755);
            if (options.flag("--cost-only")) continue;
            for (const Setting& set : kSettings)
                for (const auto& name : scenario_names(set.tag))
                    save_samples(out + "/" + aec.name + "/" + name + ".s16",
                                 cancel(aec, set, tail_ms, load(signals + "/" + name)));
        }
    print_costs(all, signals, tail_ms, options.number("--reps", 9));
    fclose(names);
    if (const char* svg = options.text("--svg", nullptr)) draw(svg, impls, signals, tail_ms);
}
