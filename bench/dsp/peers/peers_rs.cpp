// The peers' resamplers behind the measuring interface. Libraries that hand out a varying number of points
// stand behind a queue that starts with just enough zeros never to run dry; that delay counts as theirs.
#include "bench/dsp/peers/peers.hpp"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>
#include <tuple>
#include <vector>
#include <zita-resampler/resampler.h>

namespace {

using Samples = std::vector<int16_t>;
using Floats = std::vector<float>;

int16_t limited(float v) { return int16_t(std::clamp(lrintf(v), -32768L, 32767L)); }

// speexdsp
template<int Quality> void* speex_open(int in, int out, int)
{
    int error = 0;
    return speex_resampler_init(1, spx_uint32_t(in), spx_uint32_t(out), Quality, &error);
}
int speex_process(void* s, const int16_t* in, int n, int16_t* out)
{
    spx_uint32_t used = spx_uint32_t(n), made = spx_uint32_t(n) * 6;
    speex_resampler_process_int(static_cast<SpeexResamplerState*>(s), 0, in, &used, out, &made);
    return int(made);
}
void speex_close(void* s) { speex_resampler_destroy(static_cast<SpeexResamplerState*>(s)); }

// Each engine's run() takes n points and appends what it makes.
template<unsigned long Recipe> class Soxr {
public:
    Soxr(int in, int out)
    {
        soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
        io.flags |= SOXR_NO_DITHER;
        const soxr_quality_spec_t quality = soxr_quality_spec(Recipe, 0);
        const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
        soxr_ = soxr_create(in, out, 1, nullptr, &io, &quality, &runtime);
        if (!soxr_) exit(1);
    }
    Soxr(const Soxr&) = delete;
    ~Soxr() { soxr_delete(soxr_); }
    void run(const int16_t* x, int n, Samples& to)
    {
        const size_t at = to.size();
        to.resize(at + size_t(n) * 8 + 8192);
        size_t used = 0, made = 0;
        soxr_process(soxr_, x, size_t(n), &used, &to[at], to.size() - at, &made);
        to.resize(at + made);
    }

private:
    soxr_t soxr_;
};

template<unsigned HalfLength> class Zita {
public:
    Zita(int in, int out)
    {
        if (zita_.setup(unsigned(in), unsigned(out), 1, HalfLength)) exit(1);
        float unused = 0;
        feed(nullptr, zita_.inpsize() - 1, &unused, 1); // zeros, so that the first point gives output
    }
    void run(const int16_t* x, int n, Samples& to)
    {
        const Floats in(x, x + n);
        Floats out(size_t(n) * 8 + 64);
        const size_t made = out.size() - feed(in.data(), unsigned(n), out.data(), unsigned(out.size()));
        for (size_t i = 0; i < made; ++i) to.push_back(limited(out[i]));
    }

private:
    unsigned feed(const float* x, unsigned n, float* y, unsigned room)
    {
        zita_.inp_count = n;
        zita_.inp_data = const_cast<float*>(x);
        zita_.out_count = room;
        zita_.out_data = y;
        zita_.process();
        return zita_.out_count;
    }
    Resampler zita_;
};

template<int Type> class Src {
public:
    Src(int in, int out) : src_(src_new(Type, 1, nullptr)), ratio_(double(out) / in) {}
    Src(const Src&) = delete;
    ~Src() { src_delete(src_); }
    void run(const int16_t* x, int n, Samples& to)
    {
        const Floats in(x, x + n);
        Floats out(size_t(n) * 8 + 64);
        for (long used = 0; used < n;) {
            SRC_DATA d{};
            d.data_in = in.data() + used;
            d.input_frames = n - used;
            d.data_out = out.data();
            d.output_frames = long(out.size());
            d.src_ratio = ratio_;
            if (src_process(src_, &d) != 0) exit(1);
            for (long i = 0; i < d.output_frames_gen; ++i) to.push_back(limited(out[size_t(i)]));
            if (!d.input_frames_used && !d.output_frames_gen) break;
            used += d.input_frames_used;
        }
    }

private:
    SRC_STATE* src_;
    double ratio_;
};

// An engine behind the queue.
template<class Engine> class Steady {
public:
    Steady(int in, int out, int points)
        : engine_(in, out), in_(in), out_(out), queue_(size_t(zeros(in, out, points)))
    {
    }

    int process(const int16_t* x, int n, int16_t* y)
    {
        engine_.run(x, n, queue_);
        const size_t due = size_t(long(n) * out_ / in_);
        if (queue_.size() - head_ < due) {
            fprintf(stderr, "a peer's queue ran dry\n");
            exit(1);
        }
        std::copy_n(queue_.begin() + long(head_), due, y);
        head_ += due;
        if (head_ > 8192) {
            queue_.erase(queue_.begin(), queue_.begin() + long(head_));
            head_ = 0;
        }
        return int(due);
    }

    static void* open(int in, int out, int points) { return new Steady(in, out, points); }
    static int run(void* s, const int16_t* x, int n, int16_t* y)
    {
        return static_cast<Steady*>(s)->process(x, n, y);
    }
    static void close(void* s) { delete static_cast<Steady*>(s); }

private:
    // The largest shortfall over a long run.
    static long zeros(int in, int out, int points)
    {
        static std::map<std::tuple<int, int, int>, long> known;
        const auto [found, fresh] = known.try_emplace({in, out, points}, 0);
        if (!fresh) return found->second;
        Engine probe(in, out);
        const Samples silence(static_cast<size_t>(points));
        Samples made;
        long given = 0, due = 0;
        for (int i = 0; i < 4000; ++i) {
            made.clear();
            probe.run(silence.data(), points, made);
            given += long(made.size());
            due += long(points) * out / in;
            found->second = std::max(found->second, due - given);
        }
        return found->second;
    }

    Engine engine_;
    int in_, out_;
    Samples queue_;
    size_t head_ = 0;
};

template<class Engine> constexpr vd_resampler steady(const char* name)
{
    return {name, Steady<Engine>::open, Steady<Engine>::run, Steady<Engine>::close};
}

const vd_resampler kResamplers[] = {
    {"speex-5", speex_open<5>, speex_process, speex_close},
    {"speex-8", speex_open<8>, speex_process, speex_close},
    {"speex-10", speex_open<10>, speex_process, speex_close},
    steady<Soxr<SOXR_LQ>>("soxr-LQ"),
    steady<Soxr<SOXR_HQ>>("soxr-HQ"),
    steady<Zita<32>>("zita-32"),
    steady<Zita<48>>("zita-48"),
    steady<Zita<96>>("zita-96"),
    steady<Src<SRC_SINC_MEDIUM_QUALITY>>("src-medium"),
};

} // namespace

const vd_impl* zep::bench::peers_rs()
{
    static const vd_impl impl = {nullptr, 0, kResamplers, int(std::size(kResamplers)),
                                 nullptr, 0, nullptr,     0};
    return &impl;
}
