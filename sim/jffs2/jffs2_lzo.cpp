// LZO1X, the compressor that newer kernels try first. A stream is instructions; each copies bytes that were put out
// before, then takes up to three bytes as they stand. What the smallest instructions mean depends on how many bytes the
// one before took so.
#include "sim/jffs2/jffs2_log.hpp"

#include <algorithm>

namespace vcam::jffs2 {
namespace {

class Lzo {
public:
    Lzo(std::span<const uint8_t> in, std::span<uint8_t> out) : in_(in), out_(out) {}

    bool run()
    {
        if (!in_.empty() && in_[0] > 17) {
            const uint32_t count = in_[at_++] - 17u;
            take(count);
            before_ = std::min(count, kRun);
        }
        while (good_ && !ended_) step(byte());
        return good_ && done_ == out_.size();
    }

private:
    static constexpr uint32_t kRun = 4; // bytes as they stand, four or more of them

    void step(uint32_t code)
    {
        if (code < 16 && before_ == 0) {
            take(3 + length(code, 15));
            before_ = kRun;
            return;
        }
        if (code < 16)
            near(code, before_ == kRun ? 3 : 2, before_ == kRun ? 2049 : 1, 2, 3);
        else if (code < 32)
            far(2 + length(code & 7, 7), 16384 + (code >> 3 & 1) * 16384);
        else if (code < 64)
            far(2 + length(code & 31, 31), 1);
        else
            near(code, code < 128 ? 3 + (code >> 5 & 1) : 5 + (code >> 5 & 3), 1, 3, 7);
    }
    // The distance in the code and one byte more.
    void near(uint32_t code, uint32_t count, uint32_t least, uint32_t shift, uint32_t mask)
    {
        copy((byte() << shift) + (code >> 2 & mask) + least, count);
        literals(code & 3);
    }
    // The distance in two bytes; the farthest distance's first value is the end of the stream.
    void far(uint32_t count, uint32_t least)
    {
        const uint32_t low = byte(), both = low | byte() << 8, distance = (both >> 2) + least;
        if (distance == 16384 && least == 16384) {
            ended_ = true;
            return;
        }
        copy(distance, count);
        literals(both & 3);
    }
    void literals(uint32_t count)
    {
        take(count);
        before_ = count;
    }
    // A length that does not fit in its bits goes on in bytes: 255 for each zero, and the first other one.
    uint32_t length(uint32_t bits, uint32_t most)
    {
        if (bits) return bits;
        uint32_t value = most, next = byte();
        for (; next == 0 && good_; next = byte()) value += 255;
        return value + next;
    }
    uint32_t byte()
    {
        good_ &= at_ < in_.size();
        return good_ ? in_[at_++] : 0;
    }
    void take(uint32_t count)
    {
        good_ &= count <= in_.size() - at_ && count <= out_.size() - done_;
        if (!good_) return;
        std::copy_n(in_.begin() + long(at_), count, out_.begin() + long(done_));
        at_ += count, done_ += count;
    }
    void copy(uint32_t distance, uint32_t count)
    {
        good_ &= distance <= done_ && count <= out_.size() - done_;
        for (; good_ && count; --count, ++done_) out_[done_] = out_[done_ - distance]; // may overlap
    }

    std::span<const uint8_t> in_;
    std::span<uint8_t> out_;
    size_t at_ = 0, done_ = 0;
    uint32_t before_ = 0; // bytes as they stand, of the instruction before
    bool good_ = true, ended_ = false;
};

} // namespace

bool inflate_lzo(std::span<const uint8_t> in, std::span<uint8_t> out) { return Lzo(in, out).run(); }

} // namespace vcam::jffs2
