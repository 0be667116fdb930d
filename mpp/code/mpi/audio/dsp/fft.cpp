// A real transform of n points is a complex one of n / 2, whose points are the even and odd ones, and a pass that
// takes the two apart. The complex transform is Stockham's: each pass writes in the order that the next one reads,
// so nothing is put in order at the end. Radix 4 multiplies least; 5 makes 10 ms of 8 kHz a size of its own
// (80 = 5 * 4 * 4), where zeros up to 128 would cost half as much again; 2 is for what is left.
#include "mpi/audio/dsp/fft.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"

#include <array>
#include <utility>

namespace zep {
namespace {

constexpr int32_t to_q30(double v) { return nearest(v * (1 << 30)); }

// exp(-2 pi j i / n), folded into the first eighth of the circle, so that symmetric points are equal to the last bit.
constexpr Complex unit_root(int i, int n)
{
    const int octant = 8 * i / n;
    const int rest = octant % 2 ? (octant + 1) * n - 8 * i : 8 * i - octant * n; // in 1 / (8 n) of the circle
    const double angle = 2 * kPi * rest / (8.0 * n);
    double c = cos_series(angle), s = sin_series(angle);
    if ((octant + 1) / 2 % 2) std::swap(c, s);
    const bool left = octant >= 2 && octant < 6;
    const bool lower = octant >= 4;
    return {to_q30(left ? -c : c), to_q30(lower ? s : -s)};
}

template<int Size>
constexpr auto kTable = [] {
    std::array<Complex, Size> t{};
    for (int i = 0; i < Size; ++i) t[size_t(i)] = unit_root(i, Size);
    return t;
}();

// The roots of N are kStep<N> apart in the table of the larger of two sizes: 256 shares with 512, 160 with 320.
template<int N> constexpr int kStep = (N % 5 ? 512 : 320) / N;
template<int N> constexpr const Complex* kRoots = kTable<N * kStep<N>>.data();

constexpr int32_t kCos72 = to_q30(cos_series(2 * kPi / 5));
constexpr int32_t kCos144 = to_q30(cos_series(4 * kPi / 5));
constexpr int32_t kSin72 = to_q30(sin_series(2 * kPi / 5));
constexpr int32_t kSin144 = to_q30(sin_series(4 * kPi / 5));
constexpr int32_t kFourFifths = to_q30(0.8);

inline int32_t mul_q30(int32_t a, int32_t b) { return int32_t((int64_t(a) * b + (1 << 29)) >> 30); }

inline Complex rotate(Complex a, Complex w)
{
    return {int32_t((int64_t(a.re) * w.re - int64_t(a.im) * w.im + (1 << 29)) >> 30),
            int32_t((int64_t(a.re) * w.im + int64_t(a.im) * w.re + (1 << 29)) >> 30)};
}

inline Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
inline Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
inline Complex conjugate(Complex a) { return {a.re, -a.im}; }

// Divides by 2^Down, rounded to nearest: what is cut off instead would add up to an offset.
template<int Down> inline Complex scale(Complex a)
{
    constexpr int32_t kHalf = Down ? 1 << (Down - 1) : 0;
    return {(a.re + kHalf) >> Down, (a.im + kHalf) >> Down};
}

inline void butterfly(Complex (&a)[2])
{
    const Complex t = a[0] - a[1];
    a[0] = a[0] + a[1];
    a[1] = t;
}

inline void butterfly(Complex (&a)[4])
{
    const Complex s = a[0] + a[2], d = a[0] - a[2];
    const Complex t = a[1] + a[3], u = a[1] - a[3];
    a[0] = s + t;
    a[2] = s - t;
    a[1] = {d.re + u.im, d.im - u.re};
    a[3] = {d.re - u.im, d.im + u.re};
}

// Five points, real and imaginary parts of the symmetric pairs (1, 4) and (2, 3) apart: 16 real products in place of
// the 64 of four by four complex ones.
inline void butterfly(Complex (&a)[5])
{
    const Complex s = a[1] + a[4], d = a[1] - a[4];
    const Complex t = a[2] + a[3], u = a[2] - a[3];
    const Complex p = {a[0].re + mul_q30(s.re, kCos72) + mul_q30(t.re, kCos144),
                       a[0].im + mul_q30(s.im, kCos72) + mul_q30(t.im, kCos144)};
    const Complex q = {a[0].re + mul_q30(s.re, kCos144) + mul_q30(t.re, kCos72),
                       a[0].im + mul_q30(s.im, kCos144) + mul_q30(t.im, kCos72)};
    const Complex v = {mul_q30(d.im, kSin72) + mul_q30(u.im, kSin144),
                       -mul_q30(d.re, kSin72) - mul_q30(u.re, kSin144)};
    const Complex w = {mul_q30(d.im, kSin144) - mul_q30(u.im, kSin72),
                       mul_q30(u.re, kSin72) - mul_q30(d.re, kSin144)};
    a[0] = a[0] + s + t;
    a[1] = p + v;
    a[4] = p - v;
    a[2] = q + w;
    a[3] = q - w;
}

// One pass over `stride` interleaved sub-transforms of `points` points; step: of the roots' table.
template<int Radix, int Down>
void pass(int points, int stride, const Complex* roots, int step, const Complex* from, Complex* to)
{
    const int m = points / Radix;
    for (int p = 0; p < m; ++p) {
        Complex w[Radix];
        for (int j = 1; j < Radix; ++j) w[j] = roots[j * p * step];
        for (int q = 0; q < stride; ++q) {
            Complex a[Radix];
            for (int j = 0; j < Radix; ++j) a[j] = from[q + stride * (p + m * j)];
            butterfly(a);
            Complex* out = to + q + stride * Radix * p;
            out[0] = scale<Down>(a[0]);
            for (int j = 1; j < Radix; ++j)
                out[stride * j] = p ? rotate(scale<Down>(a[j]), w[j]) : scale<Down>(a[j]);
        }
    }
}

// Complex transform of N / 2 points from a, which is overwritten; returns where the result is, a or b. Down 1
// divides by 2 for each factor 2, by 4 for a factor 5.
template<int N, int Down> const Complex* transform(Complex* a, Complex* b)
{
    constexpr int s = kStep<N>;
    const Complex* roots = kRoots<N>;
    if constexpr (N == 160) {
        pass<5, 2 * Down>(80, 1, roots, 2 * s, a, b);
        pass<4, 2 * Down>(16, 5, roots, 10 * s, b, a);
        pass<4, 2 * Down>(4, 20, roots, 40 * s, a, b);
        return b;
    } else if constexpr (N == 320) {
        pass<5, 2 * Down>(160, 1, roots, 2 * s, a, b);
        pass<4, 2 * Down>(32, 5, roots, 10 * s, b, a);
        pass<4, 2 * Down>(8, 20, roots, 40 * s, a, b);
        pass<2, Down>(2, 80, roots, 160 * s, b, a);
        return a;
    } else {
        pass<4, 2 * Down>(N / 2, 1, roots, 2 * s, a, b);
        pass<4, 2 * Down>(N / 8, 4, roots, 8 * s, b, a);
        pass<4, 2 * Down>(N / 32, 16, roots, 32 * s, a, b);
        if constexpr (N == 256) pass<2, Down>(2, 64, roots, 128 * s, b, a);
        if constexpr (N == 512) pass<4, 2 * Down>(4, 64, roots, 128 * s, b, a);
        return a;
    }
}

// With z = transform of x[2i] + j x[2i+1], the even points' spectrum is (z[k] + z*[m-k]) / 2, the odd points'
// (z[k] - z*[m-k]) / 2j, and the whole is even + root * odd. Lines k and m - k come from the same two values.
template<int N> void forward(const int32_t* x, Complex* spectrum)
{
    constexpr int m = N / 2;
    Complex a[m], b[m];
    for (int i = 0; i < m; ++i) a[i] = {x[2 * i], x[2 * i + 1]};
    const Complex* z = transform<N, 0>(a, b);
    spectrum[0] = {z[0].re + z[0].im, 0};
    spectrum[m] = {z[0].re - z[0].im, 0};
    for (int k = 1; k <= m / 2; ++k) {
        const Complex u = z[k], v = conjugate(z[m - k]);
        const Complex even = u + v, odd = rotate(u - v, kRoots<N>[k * kStep<N>]);
        spectrum[k] = {(even.re + odd.im) >> 1, (even.im - odd.re) >> 1};
        spectrum[m - k] = {(even.re - odd.im) >> 1, (-even.im - odd.re) >> 1};
    }
}

template<int N> void inverse(const Complex* spectrum, int32_t* x)
{
    constexpr int m = N / 2;
    Complex a[m], b[m];
    // Real and imaginary parts are exchanged, which makes the forward passes an inverse. Where a factor is 5, the
    // passes divide by 4 for it, and 4/5 here makes that good.
    constexpr auto share = [](int32_t v) { return N % 5 ? v : mul_q30(v, kFourFifths); };
    for (int k = 0; k < m; ++k) {
        const Complex u = spectrum[k], v = conjugate(spectrum[m - k]);
        const Complex even = u + v, odd = rotate(u - v, conjugate(kRoots<N>[k * kStep<N>]));
        a[k] = {share((even.im + odd.re) >> 1), share((even.re - odd.im) >> 1)};
    }
    const Complex* z = transform<N, 1>(a, b);
    for (int i = 0; i < m; ++i) {
        x[2 * i] = z[i].im;
        x[2 * i + 1] = z[i].re;
    }
}

} // namespace

const Fft kFft160 = {160, forward<160>, inverse<160>};
const Fft kFft256 = {256, forward<256>, inverse<256>};
const Fft kFft320 = {320, forward<320>, inverse<320>};
const Fft kFft512 = {512, forward<512>, inverse<512>};

} // namespace zep
