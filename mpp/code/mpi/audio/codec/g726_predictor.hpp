// G.726: the adaptive predictor, six zeros and two poles.
//
// A tap multiplies in the Recommendation's floating format (FMULT): sign, exponent and 6-bit mantissa of a
// signal word with a coefficient brought to the same form. The poles wait for the sample before and are
// computed one by one; the zeros do not, and are computed all at once where there are 128-bit lanes
// (exponents then come from the conversion to single precision, which is exact for these integers). Both ways
// give the same numbers.
#pragma once

#include "mpi/audio/g726.h"

#include <bit>
#include <cstdint>

namespace zep::g726 {

// A number in the floating format: sign (0 or -1), 4-bit exponent, 6-bit mantissa with its top bit set.
struct Signal {
    int sign, exponent, mantissa;
};

// [FLOATA, FLOATB] The exponent is the number of bits; 0 takes exponent 0 and mantissa 32.
inline Signal to_signal(uint32_t magnitude, int sign)
{
    const uint32_t twice = magnitude << 1 | uint32_t(magnitude == 0);
    const int exponent = 31 - std::countl_zero(twice);
    return {sign, exponent, int(twice << 5 >> exponent)};
}

// Signals are kept in one word between frames: sign in bit 15, exponent in bits 7 to 10, mantissa in bits 0
// to 5. Bit 6 stays 0, so that the exponent lies where the lanes want it.
inline uint16_t to_word(Signal s) { return uint16_t((s.sign & 0x8000) | s.exponent << 7 | s.mantissa); }
inline Signal from_word(int16_t word) { return {word >> 15, word >> 7 & 15, word & 0x3f}; }

// [FMULT] of a coefficient's upper 14 bits and a signal.
inline int32_t tap(int coefficient, Signal signal)
{
    const int c = coefficient >> 2;
    const Signal a = to_signal(uint32_t(c < 0 ? -c : c) & 0x1fff, c >> 31);
    const uint32_t product = uint32_t(a.mantissa * signal.mantissa + 0x30) >> 4;
    const int shift = a.exponent + signal.exponent; // at most 28
    uint32_t value;
    if constexpr (sizeof(void*) == 8)
        value = uint32_t(uint64_t(product) << shift >> 19) & 0x7fff;
    else
        value = shift < 19 ? product >> (19 - shift) : product << (shift - 19) & 0x7fff;
    const int32_t sign = a.sign ^ signal.sign;
    return (int32_t(value) ^ sign) - sign;
}

#if defined(__SSE2__)

// Words 6 and 7 stay 0.
class Zeros {
public:
    explicit Zeros(const G726_STATE_S& s)
        : coefficients_{s.as16B[0], s.as16B[1], s.as16B[2], s.as16B[3], s.as16B[4], s.as16B[5]},
          signals_{s.as16Dq[0], s.as16Dq[1], s.as16Dq[2], s.as16Dq[3], s.as16Dq[4], s.as16Dq[5]}
    {
    }
    void save(G726_STATE_S& s) const
    {
        for (int i = 0; i < 6; ++i) {
            s.as16B[i] = coefficients_[i];
            s.as16Dq[i] = signals_[i];
        }
    }

    // Words are taken apart into those at even and at odd places, which costs a mask and a shift.
    int32_t sum() const
    {
        const Words coefficient = coefficients_ >> 2;
        const Words negative = coefficient >> 15;
        const Words twice = (((coefficient ^ negative) - negative) & 0x1fff) << 1;
        const Longs normal = (Longs)(twice - (twice == 0)); // 0 becomes one half: exponent 0, mantissa 32
        const Longs even = single(normal & 0xffff), odd = single(normal >> 16);
        const Words mantissa = (Words)((even >> 18 & 0x1f) | (odd >> 2 & 0x1f0000) | 0x200020);
        const Longs product = (Longs)((mantissa * (signals_ & 0x3f) + 0x30) >> 4);
        const Longs signal = (Longs)(signals_ & 0x780);
        const Longs sign = (Longs)(coefficient ^ signals_);
        const Longs pairs = taps(product & 0xffff, even, signal << 16, sign << 16) +
                            taps(product >> 16, odd, signal & 0x07800000, sign);
        return pairs[0] + pairs[1] + pairs[2];
    }

    // [XOR, UPB]: coefficients leak and follow the signs; gain is 0 for a difference of 0.
    template<int kLeak> void adapt(int16_t dq_sign, int16_t gain)
    {
        const Words sign = (signals_ ^ dq_sign) >> 15;
        const Words change = ((sign ^ gain) - sign) - (coefficients_ >> kLeak);
        coefficients_ =
            (Words)((Unsigned)coefficients_ + (Unsigned)change); // wraps, as the Recommendation's do
    }
    void clear() { coefficients_ = Words{}; }
    void shift(uint16_t dq)
    {
        const Quads all = (Quads)signals_;
        const Quads carry = __builtin_shufflevector(Quads{}, all >> 48, 0, 2);
        signals_ = (Words)(((all << 16 | carry) & Quads{~0ull, 0xffffffff}) | Quads{dq, 0});
    }

private:
    using Words = int16_t __attribute__((vector_size(16)));
    using Unsigned = uint16_t __attribute__((vector_size(16)));
    using Longs = int32_t __attribute__((vector_size(16)));
    using Quads = uint64_t __attribute__((vector_size(16)));
    using Floats = float __attribute__((vector_size(16)));

    // Single precision bits of four numbers.
    static Longs single(Longs numbers) { return (Longs) __builtin_convertvector(numbers, Floats); }

    // Product of the mantissas at the sum of both exponents, sign applied. The exponent of the signal word
    // arrives in bits 23 to 26, where single precision has it.
    static Longs taps(Longs product, Longs coefficient, Longs exponent, Longs sign)
    {
        const Longs scale = (coefficient & 0x7f800000) + exponent - (19 << 23);
        const Floats value = __builtin_convertvector(product, Floats) * (Floats)scale;
        const Longs magnitude = __builtin_convertvector(value, Longs) & 0x7fff;
        return (magnitude ^ sign >> 31) - (sign >> 31);
    }

    Words coefficients_; // B1 to B6
    Words signals_;      // DQ1 to DQ6
};

#else

class Zeros {
public:
    explicit Zeros(const G726_STATE_S& s)
    {
        for (int i = 0; i < 6; ++i) {
            coefficients_[i] = s.as16B[i];
            signals_[i] = s.as16Dq[i];
        }
    }
    void save(G726_STATE_S& s) const
    {
        for (int i = 0; i < 6; ++i) {
            s.as16B[i] = coefficients_[i];
            s.as16Dq[i] = signals_[i];
        }
    }

    int32_t sum() const
    {
        int32_t total = 0;
        for (int i = 0; i < 6; ++i) total += tap(coefficients_[i], from_word(signals_[i]));
        return total;
    }

    // [XOR, UPB]: coefficients leak and follow the signs; gain is 0 for a difference of 0.
    template<int kLeak> void adapt(int16_t dq_sign, int16_t gain)
    {
        for (int i = 0; i < 6; ++i) {
            const int sign = (signals_[i] ^ dq_sign) >> 15;
            coefficients_[i] =
                int16_t(coefficients_[i] - (coefficients_[i] >> kLeak) + ((gain ^ sign) - sign));
        }
    }
    void clear()
    {
        for (int16_t& b : coefficients_) b = 0;
    }
    void shift(uint16_t dq)
    {
        for (int i = 5; i > 0; --i) signals_[i] = signals_[i - 1];
        signals_[0] = int16_t(dq);
    }

private:
    int16_t coefficients_[6]; // B1 to B6
    int16_t signals_[6];      // DQ1 to DQ6
};

#endif

} // namespace zep::g726
