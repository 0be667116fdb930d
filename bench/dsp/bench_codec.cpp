// Speed of every speech codec, encoder and decoder, one thread.
//
//   bench_codec [--signals DIR] [--frame N] [--reps ROUNDS] [--only KIND] [--impl LIB]...
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

// One codec at work: its encoder, then its decoder on what the encoder made.
struct Work {
    const vd_codec* codec;
    Run run;
    int bytes = 0, points = 0;
    double encoding = 0, decoding = 0; // seconds
};

using Works = std::vector<Work>;

// Everybody's code for one kind, all in turn: first the encoders, then the decoders.
void measure(Works& works, const Samples& signal, int rounds)
{
    std::vector<std::function<void()>> encoders, decoders;
    for (Work& w : works) {
        if (!w.codec->enc) w.bytes = noise_codes(*w.codec, w.run);
        encoders.push_back([&] {
            if (w.codec->enc) w.bytes = encode_all(*w.codec, signal, w.run);
        });
        decoders.push_back([&] { w.points = decode_all(*w.codec, w.run); });
    }
    const auto encoding = times_in_turn(encoders, rounds), decoding = times_in_turn(decoders, rounds);
    for (size_t k = 0; k < works.size(); k++) {
        works[k].encoding = encoding[k];
        works[k].decoding = decoding[k];
    }
}

void print_speed(double seconds, int points, double ghz)
{
    const double ns = seconds / points * 1e9;
    printf(" %11.1f %8.2f %8.1f", points / seconds * 1e-6, ns, ns * ghz);
}

void print(const Work& w, double ghz)
{
    const int points = w.run.points;
    printf("%-10s %-16s %6d", w.codec->kind, w.codec->name, w.run.frame);
    if (w.codec->enc)
        print_speed(w.encoding, points, ghz);
    else
        printf(" %11s %8s %8s", "-", "-", "-");
    print_speed(w.decoding, points, ghz);
    printf(" %9.3f%s\n", w.bytes * 8.0 / points, w.points == points ? "" : "  (other length)");
    fflush(stdout);
}

std::vector<std::string> kinds_of(const std::vector<const vd_impl*>& impls, const std::string& only)
{
    std::vector<std::string> kinds;
    for (const vd_impl* impl : impls)
        for (int i = 0; i < impl->ncodecs; i++) {
            const std::string kind = impl->codecs[i].kind;
            if (kind.starts_with(only) && std::find(kinds.begin(), kinds.end(), kind) == kinds.end())
                kinds.push_back(kind);
        }
    return kinds;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options(argc, argv);
    options.pin();
    const Samples signal =
        load_samples(std::string(options.text("--signals", "signals/data")) + "/c_speech.s16");
    const double ghz = core_ghz();
    const int rounds = options.number("--reps", 9), frame = options.number("--frame", 160);
    printf("# clock %.2f GHz, %zu samples a round, least of %d rounds, all of a kind in turn\n", ghz,
           signal.size(), rounds);
    printf("%-10s %-16s %6s %11s %8s %8s %11s %8s %8s %9s\n", "kind", "who", "frame", "enc Msmp/s", "ns/smp",
           "cyc/smp", "dec Msmp/s", "ns/smp", "cyc/smp", "bits/smp");
    auto impls = options.impls();
    impls.insert(impls.begin(), peers_codec());
    for (const std::string& kind : kinds_of(impls, options.text("--only", ""))) {
        Works works;
        for (const vd_impl* impl : impls)
            for (int i = 0; i < impl->ncodecs; i++)
                if (impl->codecs[i].kind == kind)
                    works.push_back({&impl->codecs[i], prepare(impl->codecs[i], frame, int(signal.size()))});
        measure(works, signal, rounds);
        for (const Work& w : works) print(w, ghz);
    }
}
