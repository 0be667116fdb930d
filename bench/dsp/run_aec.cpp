// Runs every echo canceller over every scenario of signals/mk_aec.py, keeps what came out for
// score/score_aec.py, draws how the echo falls and prints the cost of 10 ms.
//
//   run_aec [--signals DIR] [--out DIR] [--tail MS] [--cost-only] [--best] [--only NAME] [--svg FILE] [--impl
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

void print_cost(const vd_aec& aec, const Setting& set, int tail_ms, const Scenario& s, const Options& options)
{
    if (cancel(aec, set, tail_ms, s).empty()) {
        printf("   %s (frame not taken)      ", set.tag);
        return;
    }
    const double seconds =
        time_of([&] { cancel(aec, set, tail_ms, s); }, options.number("--reps", 5), options.flag("--best"));
    printf("   %s %8.2f us", set.tag, seconds / double(s.near.size()) * set.rate / 100 * 1e6);
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
    const std::pair<const char*, const char*> kinds[] = {{"8k_st_64", "Speech, room of 64 ms, 8 kHz"},
                                                         {"8k_chg_64", "Another room from 8 s on"}};
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
    const std::string signals = options.text("--signals", "signals/aec"), out = options.text("--out", "aec");
    const int tail_ms = options.number("--tail", 128);
    const std::string only = options.text("--only", "");
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_aec());
    options.pin();
    mkdir(out.c_str(), 0755);
    FILE* names = fopen((out + "/names").c_str(), "w");
    if (!names) return 1;
    printf("# clock %.2f GHz, tail %d ms; 10 ms of signal: 8 kHz in frames of 80, 16 kHz of 160\n",
           core_ghz(), tail_ms);
    for (const vd_impl* impl : impls)
        for (int k = 0; k < impl->naec; k++) {
            const vd_aec& aec = impl->aec[k];
            if (only.compare(0, only.size(), aec.name, std::min(only.size(), strlen(aec.name))) != 0)
                continue;
            fprintf(names, "%s\n", aec.name);
            mkdir((out + "/" + aec.name).c_str(), 0755);
            printf("%-18s", aec.name);
            for (const Setting& set : kSettings) {
                if (!options.flag("--cost-only"))
                    for (const auto& name : scenario_names(set.tag))
                        save_samples(out + "/" + aec.name + "/" + name + ".s16",
                                     cancel(aec, set, tail_ms, load(signals + "/" + name)));
                print_cost(aec, set, tail_ms, load(signals + "/" + set.tag + "_dt_64"), options);
            }
            printf("\n");
            fflush(stdout);
        }
    fclose(names);
    if (const char* svg = options.text("--svg", nullptr)) draw(svg, impls, signals, tail_ms);
}
