// Speed of every speech codec, encoder and decoder, one thread.
//
//   bench_codec [--signals DIR] [--frame N] [--reps R] [--best] [--only KIND] [--impl LIB]...
#include "bench/dsp/peers/peers.hpp"
#include "bench/dsp/util.hpp"

using namespace zep::bench;

namespace {

struct Run {
    int frame, frames, points;
    Octets codes;
    std::vector<int> lengths;
    Samples decoded;
};

struct Row {
    double seconds;
    int points;
};

Run prepare(const vd_codec& codec, int frame, int available)
{
    const int f = codec.whole ? available : codec.frame ? codec.frame : frame;
    const int frames = available / f;
    return {f,
            frames,
            frames * f,
            Octets(size_t(available) * 2 + 4096 + 16 * size_t(frames)),
            std::vector<int>(size_t(frames)),
            Samples(size_t(available) + 65536)};
}

int encode_all(const vd_codec& codec, const Samples& signal, Run& run)
{
    void* state = codec.enc_open(run.frame);
    int bytes = 0;
    for (int i = 0; i < run.frames; i++)
        bytes += run.lengths[size_t(i)] =
            codec.enc(state, &signal[size_t(i) * size_t(run.frame)], run.frame, &run.codes[size_t(bytes)]);
    codec.enc_close(state);
    return bytes;
}

// For a decoder alone any codes do: noise.
int noise_codes(const vd_codec& codec, Run& run)
{
    const int bits = strncmp(codec.kind, "g726-", 5) == 0 ? atoi(codec.kind + 5) / 8 : 4;
    const int bytes = run.points * bits / 8;
    uint32_t r = 1;
    for (int i = 0; i < bytes; i++) run.codes[size_t(i)] = uint8_t((r = r * 1664525u + 1013904223u) >> 24);
    run.lengths[0] = bytes;
    return bytes;
}

int decode_all(const vd_codec& codec, Run& run)
{
    void* state = codec.dec_open(run.frame);
    size_t used = 0;
    int points = 0;
    for (int i = 0; i < run.frames; i++) {
        points += codec.dec(state, &run.codes[used], run.lengths[size_t(i)], &run.decoded[size_t(points)]);
        used += size_t(run.lengths[size_t(i)]);
    }
    codec.dec_close(state);
    return points;
}

void print(const Row& row, double ghz)
{
    const double ns = row.seconds / row.points * 1e9;
    printf(" %11.1f %8.2f %8.1f", row.points / row.seconds * 1e-6, ns, ns * ghz);
}

void measure(const vd_codec& codec, const Samples& signal, const Options& options, double ghz)
{
    const int repetitions = options.number("--reps", 11);
    const bool best = options.flag("--best");
    Run run = prepare(codec, options.number("--frame", 160), int(signal.size()));
    printf("%-10s %-16s %6d", codec.kind, codec.name, run.frame);
    int bytes = 0;
    if (codec.enc) {
        const double t = time_of([&] { bytes = encode_all(codec, signal, run); }, repetitions, best);
        print({t, run.points}, ghz);
    } else {
        bytes = noise_codes(codec, run);
        printf(" %11s %8s %8s", "-", "-", "-");
    }
    int points = 0;
    const double t = time_of([&] { points = decode_all(codec, run); }, repetitions, best);
    print({t, points}, ghz);
    printf(" %9.3f%s\n", bytes * 8.0 / run.points, points == run.points ? "" : "  (other length)");
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    options.pin();
    const Samples signal =
        load_samples(std::string(options.text("--signals", "signals/data")) + "/c_speech.s16");
    const std::string only = options.text("--only", "");
    const double ghz = core_ghz();
    printf("# clock %.2f GHz, %zu samples a repetition, %s of %d\n", ghz, signal.size(),
           options.flag("--best") ? "best" : "median", options.number("--reps", 11));
    printf("%-10s %-16s %6s %11s %8s %8s %11s %8s %8s %9s\n", "kind", "who", "frame", "enc Msmp/s", "ns/smp",
           "cyc/smp", "dec Msmp/s", "ns/smp", "cyc/smp", "bits/smp");
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_codec());
    for (const vd_impl* impl : impls)
        for (int i = 0; i < impl->ncodecs; i++)
            if (std::string(impl->codecs[i].kind).starts_with(only))
                measure(impl->codecs[i], signal, options, ghz);
}
