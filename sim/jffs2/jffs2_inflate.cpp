// Decompressors for JFFS2 data nodes. The output size is known from the node, so nothing grows: a
// stream that would write past it, or that ends short of it, is damaged.
#include "sim/jffs2/jffs2_log.hpp"

#include <algorithm>
#include <array>

namespace vcam::jffs2 {
namespace {

constexpr uint32_t kMaxBits = 15; // longest code of a deflate alphabet

// Deflate's bit order: the first bit is the lowest of the first byte.
class Bits {
public:
    explicit Bits(std::span<const uint8_t> in) : in_(in) {}
    uint32_t take(uint32_t count)
    {
        while (held_ < count) {
            if (next_ == in_.size()) {
                short_ = true;
                return 0;
            }
            bits_ |= uint32_t(in_[next_++]) << held_;
            held_ += 8;
        }
        const uint32_t value = bits_ & ((1u << count) - 1);
        bits_ >>= count;
        held_ -= count;
        return value;
    }
    void to_byte()
    {
        bits_ >>= held_ & 7;
        held_ &= ~7u;
    }
    [[nodiscard]] bool ran_short() const { return short_; }

private:
    std::span<const uint8_t> in_;
    size_t next_ = 0;
    uint32_t bits_ = 0, held_ = 0;
    bool short_ = false;
};

// Canonical prefix code: how many codes have each length, and the symbols in code order.
struct Code {
    std::array<uint16_t, kMaxBits + 1> count{};
    std::array<uint16_t, 288> symbol{};

    bool build(std::span<const uint8_t> lengths)
    {
        count.fill(0);
        for (uint8_t l : lengths) ++count[l];
        count[0] = 0;
        int32_t left = 1;
        std::array<uint16_t, kMaxBits + 2> at{};
        for (uint32_t l = 1; l <= kMaxBits; ++l) {
            left = left * 2 - count[l];
            if (left < 0) return false; // more codes than the lengths allow
            at[l + 1] = at[l] + count[l];
        }
        for (size_t s = 0; s < lengths.size(); ++s)
            if (lengths[s]) symbol[at[lengths[s]]++] = uint16_t(s);
        return true;
    }
    // -1 when the bits form no code.
    int32_t decode(Bits& bits) const
    {
        int32_t code = 0, first = 0, index = 0;
        for (uint32_t l = 1; l <= kMaxBits; ++l) {
            code |= int32_t(bits.take(1));
            if (bits.ran_short()) return -1;
            if (code - first < count[l]) return symbol[size_t(index + code - first)];
            index += count[l];
            first = (first + count[l]) * 2;
            code *= 2;
        }
        return -1;
    }
};

struct Step {
    uint16_t base;
    uint8_t extra;
};
// RFC 1951, 3.2.5: lengths for symbols 257.., distances for symbols 0...
constexpr Step kLengths[] = {{3, 0},   {4, 0},   {5, 0},   {6, 0},   {7, 0},  {8, 0},  {9, 0},  {10, 0},
                             {11, 1},  {13, 1},  {15, 1},  {17, 1},  {19, 2}, {23, 2}, {27, 2}, {31, 2},
                             {35, 3},  {43, 3},  {51, 3},  {59, 3},  {67, 4}, {83, 4}, {99, 4}, {115, 4},
                             {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}};
constexpr Step kDistances[] = {{1, 0},     {2, 0},     {3, 0},     {4, 0},      {5, 1},      {7, 1},
                               {9, 2},     {13, 2},    {17, 3},    {25, 3},     {33, 4},     {49, 4},
                               {65, 5},    {97, 5},    {129, 6},   {193, 6},    {257, 7},    {385, 7},
                               {513, 8},   {769, 8},   {1025, 9},  {1537, 9},   {2049, 10},  {3073, 10},
                               {4097, 11}, {6145, 11}, {8193, 12}, {12289, 12}, {16385, 13}, {24577, 13}};

class Inflater {
public:
    Inflater(std::span<const uint8_t> in, std::span<uint8_t> out) : bits_(in), out_(out) {}
    bool run()
    {
        for (bool last = false; !last;) {
            last = bits_.take(1);
            const uint32_t kind = bits_.take(2);
            if (bits_.ran_short() || !block(kind)) return false;
        }
        return done_ == out_.size();
    }

private:
    bool block(uint32_t kind)
    {
        if (kind == 0) return stored();
        if (kind == 1) return fixed_codes() && symbols();
        return kind == 2 && read_codes() && symbols();
    }
    bool stored()
    {
        bits_.to_byte();
        const uint32_t size = bits_.take(16), check = bits_.take(16);
        if (bits_.ran_short() || (size ^ check) != 0xFFFF || size > out_.size() - done_) return false;
        for (uint32_t i = 0; i < size; ++i) out_[done_++] = uint8_t(bits_.take(8));
        return !bits_.ran_short();
    }
    bool fixed_codes()
    {
        std::array<uint8_t, 288> lengths{};
        for (size_t s = 0; s < lengths.size(); ++s) lengths[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        std::array<uint8_t, 30> distances{};
        distances.fill(5);
        return literal_.build(lengths) && distance_.build(distances);
    }
    bool read_codes()
    {
        const uint32_t literals = bits_.take(5) + 257, distances = bits_.take(5) + 1,
                       codes = bits_.take(4) + 4;
        if (bits_.ran_short() || literals > 286 || distances > 30) return false;
        static constexpr uint8_t kOrder[] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                             11, 4,  12, 3, 13, 2, 14, 1, 15};
        std::array<uint8_t, 19> lengths{};
        for (uint32_t i = 0; i < codes; ++i) lengths[kOrder[i]] = uint8_t(bits_.take(3));
        Code meta;
        std::array<uint8_t, 286 + 30> all{};
        if (!meta.build(lengths) || !read_lengths(meta, std::span(all).first(literals + distances)))
            return false;
        return literal_.build(std::span(all).first(literals)) &&
               distance_.build(std::span(all).subspan(literals, distances));
    }
    bool read_lengths(const Code& meta, std::span<uint8_t> all)
    {
        for (size_t i = 0; i < all.size();) {
            const int32_t symbol = meta.decode(bits_);
            if (symbol < 0) return false;
            if (symbol < 16) {
                all[i++] = uint8_t(symbol);
                continue;
            }
            if (symbol == 16 && i == 0) return false; // nothing to repeat
            const uint8_t value = symbol == 16 ? all[i - 1] : 0;
            const uint32_t times = symbol == 16   ? 3 + bits_.take(2)
                                   : symbol == 17 ? 3 + bits_.take(3)
                                                  : 11 + bits_.take(7);
            if (bits_.ran_short() || times > all.size() - i) return false;
            std::fill_n(all.begin() + long(i), times, value);
            i += times;
        }
        return true;
    }
    bool symbols()
    {
        for (;;) {
            const int32_t symbol = literal_.decode(bits_);
            if (symbol < 0) return false;
            if (symbol == 256) return true;
            if (symbol > 256 ? !copy(uint32_t(symbol) - 257) : !put(uint8_t(symbol))) return false;
        }
    }
    bool put(uint8_t byte)
    {
        if (done_ == out_.size()) return false;
        out_[done_++] = byte;
        return true;
    }
    bool copy(uint32_t length_symbol)
    {
        if (length_symbol >= std::size(kLengths)) return false;
        const uint32_t length = kLengths[length_symbol].base + bits_.take(kLengths[length_symbol].extra);
        const int32_t symbol = distance_.decode(bits_);
        if (symbol < 0 || size_t(symbol) >= std::size(kDistances)) return false;
        const uint32_t back = kDistances[symbol].base + bits_.take(kDistances[symbol].extra);
        if (bits_.ran_short() || back > done_ || length > out_.size() - done_) return false;
        for (uint32_t i = 0; i < length; ++i, ++done_) out_[done_] = out_[done_ - back];
        return true;
    }

    Bits bits_;
    std::span<uint8_t> out_;
    size_t done_ = 0;
    Code literal_, distance_;
};

} // namespace

bool inflate_zlib(std::span<const uint8_t> in, std::span<uint8_t> out)
{
    // Deflate, no preset dictionary, header check; the node's own checksum covers the data, so the
    // trailing Adler-32 has nothing to add.
    if (in.size() < 2 || (in[0] & 0x0F) != 8 || (in[1] & 0x20) || (in[0] * 256 + in[1]) % 31) return false;
    return Inflater(in.subspan(2), out).run();
}

// Pairs of a byte and a run length: after the byte, the run repeats what followed its last occurrence.
bool inflate_rtime(std::span<const uint8_t> in, std::span<uint8_t> out)
{
    std::array<size_t, 256> after{};
    size_t done = 0;
    for (size_t i = 0; done < out.size(); i += 2) {
        if (i + 2 > in.size()) return false;
        const uint8_t byte = in[i];
        out[done++] = byte;
        const size_t run = in[i + 1], from = after[byte];
        after[byte] = done;
        if (run > out.size() - done) return false;
        for (size_t k = 0; k < run; ++k, ++done) out[done] = out[from + k];
    }
    return true;
}

} // namespace vcam::jffs2
