// A real transform of n points is a complex one of n/2 and a pass that takes even and odd points apart.
// Radix 4, decimation in frequency, then the order is put right. The forward transform halves with every
// factor of 2.
#include "mpi/audio/dsp/anr_fft.hpp"
#include "mpi/audio/dsp/anr_math.hpp"

namespace zep::anr {
namespace {

// exp(-2 pi i k / 512), Q30
constexpr auto kTwiddle = [] {
    std::array<Complex, kMaxWindow> t{};
    for (int k = 0; k < kMaxWindow; ++k) {
        const double angle = kPi * (2 * k - kMaxWindow) / kMaxWindow;
        t[size_t(k)] = {nearest(-1073741824.0 * cos_series(angle)),
                        nearest(1073741824.0 * sin_series(angle))};
    }
    return t;
}();

// product with a twiddle, halved so many times
template<int Halve> inline Complex turn(Complex a, Complex w)
{
    constexpr int64_t round = int64_t(1) << (29 + Halve);
    return {int32_t((int64_t(a.re) * w.re - int64_t(a.im) * w.im + round) >> (30 + Halve)),
            int32_t((int64_t(a.re) * w.im + int64_t(a.im) * w.re + round) >> (30 + Halve))};
}

template<bool Inverse> inline Complex twiddle(int k)
{
    const Complex w = kTwiddle[size_t(k)];
    return Inverse ? Complex{w.re, -w.im} : w;
}

inline Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
inline Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
template<int Halve> inline Complex halved(Complex a) { return {a.re >> Halve, a.im >> Halve}; }

// four points, `apart` from each other; Unit: the twiddles are 1
template<bool Inverse, bool Unit>
inline void butterfly(Complex* p, int apart, Complex w1, Complex w2, Complex w3)
{
    constexpr int halve = Inverse ? 0 : 1;
    const Complex a = halved<halve>(p[0]), b = halved<halve>(p[apart]), c = halved<halve>(p[2 * apart]),
                  d = halved<halve>(p[3 * apart]);
    const Complex s = a + c, t = b + d, u = a - c, v = b - d;
    const Complex jv = Inverse ? Complex{-v.im, v.re} : Complex{v.im, -v.re}; // v times +i or -i
    p[0] = halved<halve>(s + t);
    p[apart] = Unit ? halved<halve>(u + jv) : turn<halve>(u + jv, w1);
    p[2 * apart] = Unit ? halved<halve>(s - t) : turn<halve>(s - t, w2);
    p[3 * apart] = Unit ? halved<halve>(u - jv) : turn<halve>(u - jv, w3);
}

// one stage of factor 4 over blocks of `size` points
template<bool Inverse> void stage4(Complex* x, int points, int size)
{
    const int quarter = size / 4, step = kMaxWindow / size;
    for (Complex* p = x; p < x + points; p += size) butterfly<Inverse, true>(p, quarter, {}, {}, {});
    for (int k = 1; k < quarter; ++k) {
        const Complex w1 = twiddle<Inverse>(k * step), w2 = twiddle<Inverse>(2 * k * step),
                      w3 = twiddle<Inverse>(3 * k * step);
        for (Complex* p = x + k; p < x + points; p += size) butterfly<Inverse, false>(p, quarter, w1, w2, w3);
    }
}

template<bool Inverse> void stage2(Complex* x, int points)
{
    constexpr int halve = Inverse ? 0 : 1;
    for (Complex* p = x; p < x + points; p += 2) {
        const Complex a = halved<halve>(p[0]), b = halved<halve>(p[1]);
        p[0] = a + b;
        p[1] = a - b;
    }
}

// where the k-th result of stages 4, 4, .. (2) stands: digits of k in reverse
constexpr int place(int k, int points)
{
    int at = 0;
    while (points > 1) {
        const int radix = points >= 4 ? 4 : 2;
        points /= radix;
        at += (k % radix) * points;
        k /= radix;
    }
    return at;
}

template<int Points>
constexpr auto kPlace = [] {
    std::array<uint8_t, Points> t{};
    for (int k = 0; k < Points; ++k) t[size_t(k)] = uint8_t(place(k, Points));
    return t;
}();

template<bool Inverse> void transform(Complex* x, int points)
{
    int size = points;
    for (; size >= 4; size /= 4) stage4<Inverse>(x, points, size);
    if (size == 2) stage2<Inverse>(x, points);
}

} // namespace

void real_forward(int n, int32_t* x, Complex* lines)
{
    const int half = n / 2, step = kMaxWindow / n;
    const uint8_t* at = n == 256 ? kPlace<128>.data() : kPlace<256>.data();
    Complex z[kMaxWindow / 2];
    for (int i = 0; i < half; ++i) z[i] = {x[2 * i], x[2 * i + 1]};
    transform<false>(z, half);
    lines[0] = {(z[0].re >> 1) + (z[0].im >> 1), 0};
    lines[half] = {(z[0].re >> 1) - (z[0].im >> 1), 0};
    for (int k = 1; k <= half / 2; ++k) {
        const Complex a = halved<1>(z[at[k]]), b = halved<1>(z[at[half - k]]);
        const Complex even = halved<1>(Complex{a.re + b.re, a.im - b.im});
        const Complex odd = turn<1>(Complex{a.im + b.im, b.re - a.re}, twiddle<false>(k * step));
        lines[k] = even + odd;
        lines[half - k] = {even.re - odd.re, odd.im - even.im};
    }
}

void real_inverse(int n, Complex* lines, int32_t* x)
{
    const int half = n / 2, step = kMaxWindow / n;
    const uint8_t* at = n == 256 ? kPlace<128>.data() : kPlace<256>.data();
    Complex z[kMaxWindow / 2];
    z[0] = {lines[0].re + lines[half].re, lines[0].re - lines[half].re};
    for (int k = 1; k <= half / 2; ++k) {
        const Complex a = lines[k], b = lines[half - k];
        const Complex even = {a.re + b.re, a.im - b.im};
        const Complex odd = turn<0>(Complex{a.re - b.re, a.im + b.im}, twiddle<true>(k * step));
        z[k] = {even.re - odd.im, even.im + odd.re};
        z[half - k] = {even.re + odd.im, odd.re - even.im};
    }
    transform<true>(z, half);
    for (int i = 0; i < half; ++i) {
        x[2 * i] = z[at[i]].re;
        x[2 * i + 1] = z[at[i]].im;
    }
}

} // namespace zep::anr
