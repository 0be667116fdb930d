// G.726: one sample through the coder; the Recommendation's block names stand in brackets.
#pragma once

#include "mpi/audio/codec/g726_predictor.hpp"
#include "mpi/audio/codec/g726_tables.hpp"

#include <algorithm>

namespace zep::g726 {

// Decisions by look-up: the magnitude for every normalized logarithm between the outermost levels.
template<int kBits> constexpr auto make_quantizer()
{
    constexpr int kLow = decision_tab<kBits>.front() - 1, kHigh = decision_tab<kBits>.back();
    std::array<uint8_t, kHigh - kLow + 1> magnitudes{};
    for (int log = kLow; log <= kHigh; ++log)
        for (int level : decision_tab<kBits>) magnitudes[size_t(log - kLow)] += log >= level;
    return magnitudes;
}
template<int kBits> static constexpr auto kQuantizer = make_quantizer<kBits>();

// What a code means, negative codes included: one look-up a sample.
struct Row {
    int16_t dequant, fik;
    int32_t wik;
};

template<int kBits> constexpr auto make_rows()
{
    constexpr size_t kCodes = size_t(1) << kBits;
    std::array<Row, kCodes> rows{};
    for (size_t code = 0; code < kCodes; ++code) {
        const size_t i = code < kCodes / 2 ? code : kCodes - 1 - code;
        rows[code] = {dequant_tab<kBits>[i], fik_tab<kBits>[i], wik_tab<kBits>[i]};
    }
    return rows;
}
template<int kBits> static constexpr auto kRows = make_rows<kBits>();

// Where size counts, all rates share the inner functions; else each rate has its own copy of them in its
// loop.
#ifdef __OPTIMIZE_SIZE__
#define G726_INNER
#else
#define G726_INNER [[gnu::always_inline]]
#endif

// What does not depend on the rate.
class CoderState {
public:
    explicit CoderState(const G726_STATE_S& s)
        : zeros_(s), yl_(s.s32Yl), yu_(s.s16Yu), dms_(s.s16Dms), dml_(s.s16Dml), ap_(s.s16Ap),
          a1_(s.as16A[0]), a2_(s.as16A[1]), pk1_(-s.au8Pk[0]), pk2_(-s.au8Pk[1]),
          sr1_(from_word(s.as16Sr[0])), sr2_(from_word(s.as16Sr[1])), td_(s.u8Td)
    {
    }

    void save(G726_STATE_S& s) const
    {
        zeros_.save(s);
        s.s32Yl = yl_;
        s.s16Yu = int16_t(yu_);
        s.s16Dms = int16_t(dms_);
        s.s16Dml = int16_t(dml_);
        s.s16Ap = int16_t(ap_);
        s.as16A[0] = int16_t(a1_);
        s.as16A[1] = int16_t(a2_);
        s.au8Pk[0] = pk1_ & 1;
        s.au8Pk[1] = pk2_ & 1;
        s.as16Sr[0] = int16_t(to_word(sr1_));
        s.as16Sr[1] = int16_t(to_word(sr2_));
        s.u8Td = td_;
    }

protected:
    struct Estimate {
        int signal, zeros; // SE, SEZ
    };

    // [ACCUM]: sums wrap in 16 bits.
    G726_INNER Estimate estimate() const
    {
        const int32_t zeros = zeros_.sum();
        return {int16_t(zeros + tap(a2_, sr2_) + tap(a1_, sr1_)) >> 1, int16_t(zeros) >> 1};
    }

    // Mix of both scale factors by the speed control [LIMA, MIX]: rounds toward 0.
    G726_INNER int scale() const
    {
        const int al = std::min(ap_ >> 2, 64);
        const int slow = yl_ >> 6;
        const int product = (yu_ - slow) * al;
        return slow + ((product + (product >> 31 & 63)) >> 6);
    }

    // Everything that both ends do with a code; returns the reconstructed signal [ADDB], unlimited.
    // Signs are masks, 0 or -1: they follow the signal, so a branch on one would be mispredicted every other
    // time.
    // `sign` is the code's; at 5 bits the zeros forget more slowly.
    G726_INNER int update(const Row& row, int sign, bool five_bits, int y, Estimate e)
    {
        const int log = row.dequant + (y >> 2); // [ADDA]
        const int present = ~(log >> 31);       // below the least logarithm there is no difference
        const int exponent = log >> 7 & 15;
        const int dq = int(uint32_t(128 + (log & 127)) << exponent >> 7) & present; // [ANTILOG]
        const int signed_dq = (dq ^ sign) - sign;
        const int sr = int16_t(e.signal + signed_dq);
        const int partial = int16_t(e.zeros + signed_dq);          // [ADDC]
        const bool transition = td_ && uint32_t(dq) > threshold(); // [TRANS]

        adapt_scale(row.wik, y);
        adapt_predictor(sign, dq, five_bits, partial, transition);
        const uint32_t magnitude = uint32_t(sr < 0 ? -sr : sr) & 0x7fff;
        sr2_ = sr1_;
        sr1_ = to_signal(magnitude, sr >> 31);
        zeros_.shift(to_word(to_signal(uint32_t(dq), sign)));
        adapt_speed(row.fik, y, transition);
        return sr;
    }

    G726_INNER uint32_t threshold() const
    {
        const int whole = yl_ >> 15;
        const uint32_t t = whole > 9 ? 31 << 10 : uint32_t(32 + (yl_ >> 10 & 31)) << whole;
        return (t + (t >> 1)) >> 1;
    }

    // [FILTD, LIMB, FILTE]
    G726_INNER void adapt_scale(int w, int y)
    {
        yu_ = std::clamp(y + ((w - y) >> 5), 544, 5120);
        yl_ += yu_ + (-yl_ >> 6);
    }

    G726_INNER void adapt_predictor(int sign, int dq, bool five_bits, int partial, bool transition)
    {
        const int pk0 = partial >> 31;
        if (transition) [[unlikely]] {
            a1_ = a2_ = 0;
            zeros_.clear();
        } else {
            adapt_poles(pk0 ^ pk1_, pk0 ^ pk2_, partial != 0);
            const int16_t gain = dq == 0 ? 0 : 128;
            if (five_bits)
                zeros_.template adapt<9>(int16_t(sign), gain);
            else
                zeros_.template adapt<8>(int16_t(sign), gain);
        }
        pk2_ = pk1_;
        pk1_ = pk0;
    }

    // [UPA2, LIMC, UPA1, LIMD]; the arguments are masks of a change of sign.
    G726_INNER void adapt_poles(int change1, int change2, bool moving)
    {
        int a2 = a2_ - (a2_ >> 7);
        int a1 = a1_ - (a1_ >> 8);
        if (moving) [[likely]] {
            const int f = std::clamp((a1_ ^ ~change1) - ~change1, -8192, 8191) >> 5;
            a2 += f + ((128 ^ change2) - change2);
            a1 += (192 ^ change1) - change1;
        }
        a2_ = std::clamp(a2, -12288, 12288);
        a1_ = std::clamp(a1, a2_ - 15360, 15360 - a2_);
    }

    // [FILTA, FILTB, SUBTC, FILTC, TRIGA, TONE]
    G726_INNER void adapt_speed(int f, int y, bool transition)
    {
        dms_ += (f - dms_) >> 5;
        dml_ += ((f << 2) - dml_) >> 7;
        const int difference = (dms_ << 2) - dml_;
        const int magnitude = difference < 0 ? -difference : difference;
        td_ = a2_ < -11776;
        const int fast = int(y < 1536) | int(td_) | int(magnitude >= dml_ >> 3);
        ap_ += ((fast << 9) - ap_) >> 4;
        if (transition) [[unlikely]]
            ap_ = 256;
    }

    Zeros zeros_;
    int yl_, yu_, dms_, dml_, ap_, a1_, a2_;
    int pk1_, pk2_; // masks
    Signal sr1_, sr2_;
    bool td_;
};

template<int kBits> class Coder : public CoderState {
public:
    using CoderState::CoderState;

    // 14-bit sample to code.
    uint32_t encode(int sample)
    {
        const Estimate e = estimate();
        const int y = scale();
        const uint32_t code = quantize(sample - e.signal, y);
        update(code, y, e);
        return code;
    }

    // Code to 14-bit sample.
    int decode(uint32_t code)
    {
        const Estimate e = estimate();
        return std::clamp(update(code, scale(), e), -8192, 8191); // [LIMO]
    }

private:
    static constexpr uint32_t kMask = (1u << kBits) - 1;

    // [LOG, SUBTB, QUAN]
    static uint32_t quantize(int d, int y)
    {
        const int sign = d >> 31;
        const uint32_t magnitude = uint32_t((d ^ sign) - sign);
        const int exponent = 31 - std::countl_zero(magnitude | 1);
        const int log = exponent << 7 | int(magnitude << 7 >> exponent & 127);
        constexpr int kLow = decision_tab<kBits>.front() - 1, kHigh = decision_tab<kBits>.back();
        const uint32_t i = kQuantizer<kBits>[size_t(std::clamp(log - (y >> 2), kLow, kHigh) - kLow)];
        // Where the levels leave a code for nothing, nothing has no sign: all ones.
        if (kBits > 2) return (i ^ uint32_t(sign | -int(i == 0))) & kMask;
        return (i ^ uint32_t(sign)) & kMask;
    }

    int update(uint32_t code, int y, Estimate e)
    {
        return CoderState::update(kRows<kBits>[code], -int(code >> (kBits - 1)), kBits == 5, y, e);
    }
};

#undef G726_INNER

} // namespace zep::g726
