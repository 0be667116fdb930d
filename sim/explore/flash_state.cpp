// The flash of a camera in memory.
#include "sim/explore/flash_state.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace vcam::explore {
namespace {

constexpr size_t kWord = sizeof(uint64_t);

uint64_t word_at(const Bytes& bytes, size_t word)
{
    uint64_t value;
    memcpy(&value, bytes.data() + word * kWord, kWord);
    return value;
}

std::set<uint32_t> bad_blocks_of(const Camera& camera, const Partition& p)
{
    std::set<uint32_t> bad;
    for (const auto& line : split(try_read_file(camera.image(p) + ".bad").value_or(""), '\n'))
        if (!line.empty()) bad.insert(uint32_t(atoi(line.c_str())));
    return bad;
}

void check(const Operation& op, const Partition& p)
{
    if (op.offset > p.size || op.size > p.size - op.offset)
        fail("the record has an operation outside %s", p.name.c_str());
}

} // namespace

// Sebastiano Vigna's splitmix64, public domain: each bit of the value reaches each bit of the result.
uint64_t mixed(uint64_t value)
{
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

Flash read_flash(const Camera& camera)
{
    Flash out;
    for (const auto& p : camera.partitions()) {
        const std::string content = read_file(camera.image(p));
        out.images.emplace_back(content.begin(), content.end());
        out.images.back().resize(p.size, 0xFF);
        out.bad.push_back(bad_blocks_of(camera, p));
    }
    return out;
}

void write_flash(const Camera& camera, const Flash& flash)
{
    for (size_t i = 0; i < flash.images.size(); ++i) {
        const std::string image = camera.image(camera.partitions()[i]);
        const Bytes& bytes = flash.images[i];
        write_file(image, std::string(bytes.begin(), bytes.end()));
        std::string list;
        for (const uint32_t block : flash.bad[i]) list += text("%u\n", block);
        if (!list.empty()) write_file(image + ".bad", list);
    }
}

void apply(Flash& flash, const Camera& camera, const Operation& op)
{
    check(op, camera.partitions()[op.partition]);
    const auto at = flash.images[op.partition].begin() + op.offset;
    if (op.kind == flash::Kind::mark_bad)
        flash.bad[op.partition].insert(uint32_t(op.offset / camera.partitions()[op.partition].erase_size));
    else if (op.kind == flash::Kind::erase)
        std::fill_n(at, op.size, 0xFF);
    else
        std::copy(op.data.begin(), op.data.end(), at);
}

PartitionState::PartitionState(Partition partition, Bytes old, Bytes finished, std::set<uint32_t> bad)
    : partition_(std::move(partition)), now_(std::move(old)), old_(now_), new_(std::move(finished)),
      bad_(std::move(bad))
{
    for (size_t word = 0; word < now_.size() / kWord; ++word) count(word, 1);
    for (const uint32_t block : bad_) hash_ += mixed(~uint64_t(block));
}

void PartitionState::count(size_t word, int64_t sign)
{
    const uint64_t value = word_at(now_, word);
    hash_ += uint64_t(sign) * mixed(value ^ mixed(word));
    differs_old_ += value != word_at(old_, word) ? sign : 0;
    differs_new_ += value != word_at(new_, word) ? sign : 0;
    programmed_ += value != ~uint64_t(0) ? sign : 0;
}

void PartitionState::put(uint32_t offset, std::span<const uint8_t> bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const size_t at = offset + done, word = at / kWord;
        const size_t size = std::min(kWord - at % kWord, bytes.size() - done);
        if (memcmp(now_.data() + at, bytes.data() + done, size) != 0) {
            count(word, -1);
            memcpy(now_.data() + at, bytes.data() + done, size);
            count(word, 1);
        }
        done += size;
    }
}

void PartitionState::mark_bad(uint32_t block)
{
    if (bad_.insert(block).second) hash_ += mixed(~uint64_t(block));
}

FlashState::FlashState(const Camera& camera, const Flash& old, const Flash& finished)
{
    for (size_t i = 0; i < old.images.size(); ++i)
        parts_.emplace_back(camera.partitions()[i], old.images[i], finished.images[i], old.bad[i]);
}

void FlashState::apply(const Operation& op)
{
    PartitionState& part = parts_.at(op.partition);
    check(op, part.partition());
    if (op.kind == flash::Kind::mark_bad)
        part.mark_bad(uint32_t(op.offset / part.partition().erase_size));
    else if (op.kind == flash::Kind::erase)
        part.put(op.offset, Bytes(op.size, 0xFF));
    else
        part.put(op.offset, op.data);
}

uint64_t FlashState::hash() const
{
    uint64_t sum = 0;
    for (const auto& part : parts_) sum = mixed(sum) + part.hash();
    return sum;
}

Flash FlashState::flash() const
{
    Flash out;
    for (const auto& part : parts_) {
        out.images.push_back(part.bytes());
        out.bad.push_back(part.bad_blocks());
    }
    return out;
}

} // namespace vcam::explore
