// Every noise reducer over every noisy file and the clean one: what comes out is written for
// score/score_ns.py, and the cost of 10 ms of signal is printed.
//
//   run_ns [--signals DIR] [--out DIR] [--points8 N] [--points16 N] [--cost-only | --no-cost] [--only NAME]
//          [--reps ROUNDS] [--impl LIB]...
#include "bench/dsp/peers/peers.hpp"
#include "bench/dsp/util.hpp"

#include <filesystem>
#include <span>
#include <sys/stat.h>

using namespace zep::bench;

namespace {

struct Condition {
    int rate;
    int points; // a frame
    std::string tag;
};

// The noisy files and the clean ones of a rate, by their names: ns_8k_..., speech_8k..., step_8k....
std::vector<std::string> files(const std::string& folder, const std::string& tag)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().stem();
        for (const char* kind : {"speech_", "step_", "ns_"})
            if (name.starts_with(kind + tag)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool reduce(const vd_ns& reducer, const Condition& c, Samples& x)
{
    void* state = reducer.open(c.rate, c.points);
    if (!state) return false;
    for (size_t i = 0; i + size_t(c.points) <= x.size(); i += size_t(c.points))
        if (reducer.process(state, &x[i], c.points)) {
            fprintf(stderr, "%s: a frame failed\n", reducer.name);
            exit(1);
        }
    reducer.close(state);
    return true;
}

void write_all(const vd_ns& reducer, const Condition& c, const std::string& from, const std::string& to)
{
    for (const std::string& name : files(from, c.tag)) {
        Samples x = load_samples(from + "/" + name + ".s16");
        if (!reduce(reducer, c, x)) return;
        save_samples(to + "/" + reducer.name + "/" + name + ".s16", x);
    }
}

// Seconds for 10 ms of signal, of each reducer in turn; 0 for one that does not take the frames.
std::vector<double> costs(const std::vector<const vd_ns*>& all, const Condition& c, const Options& options)
{
    const Samples signal =
        load_samples(std::string(options.text("--signals", "signals/data")) + "/ns_" + c.tag + "_fan_05.s16");
    std::vector<char> takes(all.size(), true);
    std::vector<std::function<void()>> jobs;
    for (size_t k = 0; k < all.size(); k++)
        jobs.push_back([&, k] {
            Samples x = signal;
            takes[k] = takes[k] && reduce(*all[k], c, x);
        });
    std::vector<double> seconds = times_in_turn(jobs, options.number("--reps", 9));
    for (size_t k = 0; k < all.size(); k++)
        seconds[k] = takes[k] ? seconds[k] / (double(signal.size()) / (c.rate / 100)) : 0;
    return seconds;
}

void print_costs(const std::vector<const vd_ns*>& all, const std::span<const Condition> conditions,
                 const Options& options)
{
    const double ghz = core_ghz();
    printf("# clock %.2f GHz; cost of 10 ms of signal, all in turn: 8 kHz in frames of %d, 16 kHz in frames "
           "of %d\n",
           ghz, conditions[0].points, conditions[1].points);
    std::vector<std::vector<double>> of;
    for (const Condition& c : conditions) of.push_back(costs(all, c, options));
    for (size_t k = 0; k < all.size(); k++) {
        printf("%-16s", all[k]->name);
        for (size_t i = 0; i < of.size(); i++)
            printf("   %s %8.2f us %9.0f cyc", conditions[i].tag.c_str(), of[i][k] * 1e6,
                   of[i][k] * 1e9 * ghz);
        printf("\n");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    options.pin();
    const std::string signals = options.text("--signals", "signals/data"), out = options.text("--out", "ns"),
                      only = options.text("--only", "");
    const Condition conditions[] = {{8000, options.number("--points8", 80), "8k"},
                                    {16000, options.number("--points16", 160), "16k"}};
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_ns());
    mkdir(out.c_str(), 0755);
    FILE* names = fopen((out + "/names").c_str(), "w");
    if (!names) {
        perror(out.c_str());
        return 1;
    }
    std::vector<const vd_ns*> all;
    for (const vd_impl* impl : impls)
        for (int i = 0; i < impl->nns; i++) {
            const vd_ns& reducer = impl->ns[i];
            if (!std::string(reducer.name).starts_with(only)) continue;
            all.push_back(&reducer);
            fprintf(names, "%s\n", reducer.name);
            mkdir((out + "/" + reducer.name).c_str(), 0755);
            if (options.flag("--cost-only")) continue;
            for (const Condition& c : conditions) write_all(reducer, c, signals, out);
        }
    fclose(names);
    if (!options.flag("--no-cost")) print_costs(all, conditions, options);
}
