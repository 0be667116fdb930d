// Every noise reducer over every noisy file and the clean one: what comes out is written for
// score/score_ns.py, and the cost of 10 ms of signal is printed.
//
//   run_ns [--signals DIR] [--out DIR] [--points8 N] [--points16 N] [--cost-only] [--reps R] [--best] [--impl
//   LIB]...
#include "bench/dsp/peers/peers.hpp"
#include "bench/dsp/util.hpp"

#include <sys/stat.h>

using namespace zep::bench;

namespace {

struct Condition {
    int rate;
    int points; // a frame
    std::string tag;
};

std::vector<std::string> files(const std::string& tag)
{
    std::vector<std::string> names = {"speech_" + tag, "step_" + tag};
    for (const char* noise : {"white", "fan", "babble"})
        for (const char* snr : {"00", "05", "10", "15"})
            names.push_back("ns_" + tag + "_" + noise + "_" + snr);
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
    for (const std::string& name : files(c.tag)) {
        Samples x = load_samples(from + "/" + name + ".s16");
        if (!reduce(reducer, c, x)) return;
        save_samples(to + "/" + reducer.name + "/" + name + ".s16", x);
    }
}

void print_cost(const vd_ns& reducer, const Condition& c, const Options& options, double ghz)
{
    const Samples signal =
        load_samples(std::string(options.text("--signals", "signals/data")) + "/ns_" + c.tag + "_fan_05.s16");
    Samples x = signal;
    if (!reduce(reducer, c, x)) {
        printf("   %s %8s    %9s    ", c.tag.c_str(), "-", "-");
        return;
    }
    const auto once = [&] {
        x = signal;
        reduce(reducer, c, x);
    };
    const double seconds = time_of(once, options.number("--reps", 7), options.flag("--best"));
    const double us = seconds / (double(signal.size()) / (c.rate / 100)) * 1e6;
    printf("   %s %8.2f us %9.0f cyc", c.tag.c_str(), us, us * 1e3 * ghz);
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    options.pin();
    const std::string signals = options.text("--signals", "signals/data"), out = options.text("--out", "ns");
    const Condition conditions[] = {{8000, options.number("--points8", 80), "8k"},
                                    {16000, options.number("--points16", 160), "16k"}};
    const double ghz = core_ghz();
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_ns());
    mkdir(out.c_str(), 0755);
    FILE* names = fopen((out + "/names").c_str(), "w");
    if (!names) {
        perror(out.c_str());
        return 1;
    }
    printf("# clock %.2f GHz; cost of 10 ms of signal: 8 kHz in frames of %d, 16 kHz in frames of %d\n", ghz,
           conditions[0].points, conditions[1].points);
    for (const vd_impl* impl : impls)
        for (int i = 0; i < impl->nns; i++) {
            const vd_ns& reducer = impl->ns[i];
            fprintf(names, "%s\n", reducer.name);
            mkdir((out + "/" + reducer.name).c_str(), 0755);
            printf("%-16s", reducer.name);
            for (const Condition& c : conditions) {
                if (!options.flag("--cost-only")) write_all(reducer, c, signals, out);
                print_cost(reducer, c, options, ghz);
            }
            printf("\n");
            fflush(stdout);
        }
    fclose(names);
}
