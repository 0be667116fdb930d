// Sound made with integers, the same on every target: noise, voices, rooms. The quality gate measures with it, and the
// tests take their sums over it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace voices {

using Signal = std::vector<int16_t>;

inline int16_t clip(int64_t v) { return int16_t(std::clamp<int64_t>(v, -32768, 32767)); }

class Random {
public:
    explicit Random(uint32_t seed) : state_(seed) {}
    int32_t next(int32_t limit)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return int32_t(int64_t(state_ >> 8) * 2 * limit >> 24) - limit;
    }
    // Nearly Gaussian, standard deviation about 0.58 * limit.
    int32_t bell(int32_t limit) { return (next(limit) + next(limit) + next(limit)) * 4 / 7; }

private:
    uint32_t state_;
};

inline Signal noise(int points, int limit, uint32_t seed = 1)
{
    Random random(seed);
    Signal x(static_cast<size_t>(points));
    for (auto& v : x) v = clip(random.bell(limit));
    return x;
}

// A square wave at full scale, 37 points a half wave.
inline Signal square(int points)
{
    Signal x(static_cast<size_t>(points));
    for (size_t i = 0; i < x.size(); ++i) x[i] = i / 37 % 2 ? 32767 : -32768;
    return x;
}

// Like speech in what echo cancellers meet: a changing formant over a pulse train, syllables, pauses.
inline Signal babble(int points, int rate, int level, uint32_t seed)
{
    Random random(seed);
    Signal x(static_cast<size_t>(points));
    int64_t a = 0, b = 0;
    int left = 0, pitch = 80, pole = 0, loud = 0;
    for (int i = 0; i < points; ++i) {
        if (left-- <= 0) {
            left = rate / 8 + random.next(rate / 20);
            pitch = rate / 120 + random.next(rate / 400);
            pole = random.next(24000);
            loud = random.next(10) > 6 ? 0 : level + random.next(level / 2);
        }
        int64_t drive = random.bell(loud / 4 + 1) + (i % pitch == 0 ? loud * 2 : 0);
        int64_t y = drive + (a * pole >> 15) - (b * 26000 >> 15);
        b = a;
        a = y;
        x[size_t(i)] = int16_t(std::clamp<int64_t>(y, -30000, 30000));
    }
    return x;
}

// Pulses at a gliding pitch through two resonators that change with every syllable; pauses between words.
inline Signal voice(int rate, int points)
{
    static constexpr int kFormants[][2] = {{700, 1200}, {300, 2200}, {500, 1700}, {350, 800}};
    Signal x;
    int64_t s1[2] = {}, s2[2] = {};
    int phase = 0;
    for (int i = 0; i < points; ++i) {
        const int ms = int(int64_t(i) * 1000 / rate), syllable = ms / 180;
        const bool voiced = syllable % 5 != 4;
        const int pitch = 110 + (ms / 20) % 40;
        phase += pitch;
        int64_t out = 0;
        const int64_t pulse = voiced && phase >= rate ? 1 << 12 : 0;
        if (phase >= rate) phase -= rate;
        for (int f = 0; f < 2; ++f) {
            // r = 1 - 0.04 * 8000 / rate; cos by its series to the fourth power, Q14
            const int64_t r = 16384 - 655 * 8000 / rate;
            const int64_t a = int64_t(kFormants[syllable % 4][f]) * 102944 / rate; // angle, Q14
            const int64_t a2 = a * a >> 14;
            const int64_t cosine = 16384 - a2 / 2 + (a2 * a2 >> 14) / 24;
            const int64_t y = pulse + (2 * (r * cosine >> 14) * s1[f] >> 14) - ((r * r >> 14) * s2[f] >> 14);
            s2[f] = s1[f];
            s1[f] = y;
            out += y;
        }
        x.push_back(clip(out));
    }
    return x;
}

// Q15: 2 ms of delay, then reflections that fade over `ms`; about 6 dB under the source.
inline std::vector<int32_t> room(int rate, int ms, uint32_t seed)
{
    Random random(seed);
    std::vector<int32_t> h(size_t(rate / 1000 * ms));
    const size_t start = size_t(rate / 500);
    int64_t fade = 5500;
    for (size_t i = start; i < h.size(); ++i) {
        h[i] = int32_t(random.bell(10000) * fade / 10000);
        fade -= fade * 6 / int64_t(h.size() - start);
    }
    h[start] = 9000;
    return h;
}

inline Signal through(const std::vector<int32_t>& h, const Signal& x)
{
    Signal y(x.size());
    for (size_t i = 0; i < x.size(); ++i) {
        int64_t sum = 0;
        for (size_t j = 0; j < h.size() && j <= i; ++j) sum += int64_t(h[j]) * x[i - j];
        y[i] = clip(sum >> 15);
    }
    return y;
}

inline Signal mix(Signal a, const Signal& b, size_t at = 0)
{
    for (size_t i = 0; i < b.size() && at + i < a.size(); ++i) a[at + i] = clip(a[at + i] + b[i]);
    return a;
}

inline Signal joined(Signal a, const Signal& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// FNV-1a over the samples.
inline uint32_t sum(const Signal& x, uint32_t hash = 2166136261u)
{
    for (int16_t v : x) hash = (hash ^ uint16_t(v)) * 16777619u;
    return hash;
}

} // namespace voices
