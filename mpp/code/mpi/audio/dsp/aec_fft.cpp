// The echo canceller's Fourier transform.
#include "mpi/audio/dsp/aec_fft.hpp"

#include "mpi/audio/dsp/aec_math.hpp"

#include <array>

namespace zep {
namespace {

constexpr int kTwiddleShift = 30;

constexpr int32_t to_q30(double v)
{
    double s = v * (1 << kTwiddleShift);
    return int32_t(s < 0 ? s - 0.5 : s + 0.5);
}

// exp(-2 pi j i / n), folded into the first eighth so that symmetric points are equal.
constexpr AecComplex unit_root(int i, int n)
{
    int octant = 8 * i / n;
    int rest = octant % 2 ? (octant + 1) * n - 8 * i : 8 * i - octant * n; // of n * 8
    double a = 2 * kAecPi * rest / (8.0 * n);
    double c = aec_series(a, 1, 0);
    double s = aec_series(a, a, 1);
    if ((octant + 1) / 2 % 2) {
        double t = c;
        c = s;
        s = t;
    }
    bool left = octant >= 2 && octant < 6;
    bool lower = octant >= 4;
    return {to_q30(left ? -c : c), to_q30(lower ? s : -s)};
}

constexpr auto make_roots()
{
    std::array<AecComplex, kAecMaxSize> t{};
    for (int i = 0; i < kAecMaxSize; ++i) t[size_t(i)] = unit_root(i, kAecMaxSize);
    return t;
}

constexpr auto kRoots = make_roots();
constexpr int32_t kCos72 = 331804468; // Q30: cos and sin of 72 and 144 degrees
constexpr int32_t kCos144 = -868675380;
constexpr int32_t kSin72 = 1021189159;
constexpr int32_t kSin144 = 631129611;
constexpr int32_t kFourFifths = 858993459;

inline int32_t mul_q30(int32_t a, int32_t b) { return int32_t((int64_t(a) * b + (1 << 29)) >> 30); }

inline AecComplex rotate(AecComplex a, AecComplex w)
{
    return {int32_t((int64_t(a.re) * w.re - int64_t(a.im) * w.im + (1 << 29)) >> 30),
            int32_t((int64_t(a.re) * w.im + int64_t(a.im) * w.re + (1 << 29)) >> 30)};
}

inline AecComplex add(AecComplex a, AecComplex b) { return {a.re + b.re, a.im + b.im}; }
inline AecComplex sub(AecComplex a, AecComplex b) { return {a.re - b.re, a.im - b.im}; }

template<int kDown> inline AecComplex scale(AecComplex a)
{
    if constexpr (kDown == 0) return a;
    constexpr int32_t kHalf = kDown ? 1 << (kDown - 1) : 0;
    return {(a.re + kHalf) >> kDown, (a.im + kHalf) >> kDown};
}

inline void butterfly(AecComplex (&a)[2])
{
    AecComplex t = sub(a[0], a[1]);
    a[0] = add(a[0], a[1]);
    a[1] = t;
}

inline void butterfly(AecComplex (&a)[4])
{
    AecComplex s = add(a[0], a[2]), d = sub(a[0], a[2]);
    AecComplex t = add(a[1], a[3]), u = sub(a[1], a[3]);
    a[0] = add(s, t);
    a[2] = sub(s, t);
    a[1] = {d.re + u.im, d.im - u.re};
    a[3] = {d.re - u.im, d.im + u.re};
}

inline void butterfly(AecComplex (&a)[5])
{
    AecComplex s = add(a[1], a[4]), d = sub(a[1], a[4]);
    AecComplex t = add(a[2], a[3]), u = sub(a[2], a[3]);
    AecComplex p = {a[0].re + mul_q30(s.re, kCos72) + mul_q30(t.re, kCos144),
                    a[0].im + mul_q30(s.im, kCos72) + mul_q30(t.im, kCos144)};
    AecComplex q = {a[0].re + mul_q30(s.re, kCos144) + mul_q30(t.re, kCos72),
                    a[0].im + mul_q30(s.im, kCos144) + mul_q30(t.im, kCos72)};
    AecComplex v = {mul_q30(d.im, kSin72) + mul_q30(u.im, kSin144),
                    -mul_q30(d.re, kSin72) - mul_q30(u.re, kSin144)};
    AecComplex w = {mul_q30(d.im, kSin144) - mul_q30(u.im, kSin72),
                    mul_q30(u.re, kSin72) - mul_q30(d.re, kSin144)};
    a[0] = add(a[0], add(s, t));
    a[1] = add(p, v);
    a[4] = sub(p, v);
    a[2] = add(q, w);
    a[3] = sub(q, w);
}

// One pass over sub-transforms of kPoints points that lie kStride apart.
template<int kRadix, int kDown, int kPoints, int kStride> void pass(const AecComplex* from, AecComplex* to)
{
    constexpr int m = kPoints / kRadix;
    constexpr int stride = kStride;
    constexpr int step = kAecMaxSize / kPoints;
    for (int p = 0; p < m; ++p) {
        AecComplex w[kRadix];
        for (int j = 1; j < kRadix; ++j) w[j] = kRoots[size_t(j * p * step)];
        for (int q = 0; q < stride; ++q) {
            AecComplex a[kRadix];
            for (int j = 0; j < kRadix; ++j) a[j] = from[q + stride * (p + m * j)];
            butterfly(a);
            AecComplex* out = to + q + stride * kRadix * p;
            out[0] = scale<kDown>(a[0]);
            for (int j = 1; j < kRadix; ++j)
                out[stride * j] = p ? rotate(scale<kDown>(a[j]), w[j]) : scale<kDown>(a[j]);
        }
    }
}

// Complex transform of m = 80 or 160 points; `a` is overwritten. kDown 1 scales by 1.25 / m.
// Returns where the result is: a or b.
template<int kDown> AecComplex* transform(int m, AecComplex* a, AecComplex* b)
{
    if (m == 80) {
        pass<5, 2 * kDown, 80, 1>(a, b);
        pass<4, 2 * kDown, 16, 5>(b, a);
        pass<4, 2 * kDown, 4, 20>(a, b);
        return b;
    }
    pass<5, 2 * kDown, 160, 1>(a, b);
    pass<4, 2 * kDown, 32, 5>(b, a);
    pass<4, 2 * kDown, 8, 20>(a, b);
    pass<2, kDown, 2, 80>(b, a);
    return a;
}

} // namespace

void aec_fft_forward(int n, const int32_t* x, AecComplex* spectrum)
{
    AecComplex a[kAecMaxBlock], b[kAecMaxBlock];
    const int m = n / 2;
    for (int i = 0; i < m; ++i) a[i] = {x[2 * i], x[2 * i + 1]};
    const AecComplex* z = transform<0>(m, a, b);
    spectrum[0] = {z[0].re + z[0].im, 0};
    spectrum[m] = {z[0].re - z[0].im, 0};
    for (int k = 1; k <= m / 2; ++k) {
        AecComplex u = z[k], v = {z[m - k].re, -z[m - k].im};
        AecComplex even = add(u, v);
        AecComplex odd = rotate(sub(u, v), kRoots[size_t(k * (kAecMaxSize / n))]);
        spectrum[k] = {(even.re + odd.im) >> 1, (even.im - odd.re) >> 1};
        spectrum[m - k] = {(even.re - odd.im) >> 1, (-even.im - odd.re) >> 1};
    }
}

void aec_fft_inverse(int n, const AecComplex* spectrum, int32_t* x)
{
    AecComplex a[kAecMaxBlock], b[kAecMaxBlock];
    const int m = n / 2;
    // The passes divide by 64 (128), the transform needs 80 (160). Real and imaginary parts are
    // exchanged, which makes the forward passes an inverse.
    for (int k = 0; k < m; ++k) {
        AecComplex u = spectrum[k], v = {spectrum[m - k].re, -spectrum[m - k].im};
        AecComplex root = kRoots[size_t(k * (kAecMaxSize / n))];
        AecComplex odd = rotate(sub(u, v), {root.re, -root.im});
        AecComplex even = add(u, v);
        a[k] = {mul_q30((even.im + odd.re) >> 1, kFourFifths), mul_q30((even.re - odd.im) >> 1, kFourFifths)};
    }
    const AecComplex* z = transform<1>(m, a, b);
    for (int i = 0; i < m; ++i) {
        x[2 * i] = z[i].im;
        x[2 * i + 1] = z[i].re;
    }
}

} // namespace zep
