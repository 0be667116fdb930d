// The flash of a camera in memory, with what a state's name needs kept up to date as bytes change.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/explore/recording.hpp"

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace vcam::explore {

using Bytes = std::vector<uint8_t>;
using Images = std::vector<Bytes>; // by partition number

// What a camera's flash holds.
struct Flash {
    Images images;
    std::vector<std::set<uint32_t>> bad; // block numbers, by partition number
    bool operator==(const Flash&) const = default;
};
// Of a camera that does not run. Both throw.
Flash read_flash(const Camera& camera);
void write_flash(const Camera& camera, const Flash& flash);
// Throws for a place outside the partition.
void apply(Flash& flash, const Camera& camera, const Operation& operation);

// One partition. Beside its bytes it counts the words that differ from the run's start and end and from erased flash, and
// sums a hash of each word and its place, so that a change costs no more than the bytes it changes.
class PartitionState {
public:
    PartitionState(Partition partition, Bytes old, Bytes finished, std::set<uint32_t> bad);
    void put(uint32_t offset, std::span<const uint8_t> bytes);
    void mark_bad(uint32_t block);

    [[nodiscard]] const Partition& partition() const { return partition_; }
    [[nodiscard]] const Bytes& bytes() const { return now_; }
    [[nodiscard]] const std::set<uint32_t>& bad_blocks() const { return bad_; } // numbers
    [[nodiscard]] uint64_t hash() const { return hash_; }
    [[nodiscard]] bool is_old() const { return differs_old_ == 0; }
    [[nodiscard]] bool is_new() const { return differs_new_ == 0; }
    [[nodiscard]] bool is_erased() const { return programmed_ == 0; }
    // Whether the run leaves it as it was.
    [[nodiscard]] bool stays() const { return old_ == new_; }

private:
    void count(size_t word, int64_t sign);
    Partition partition_;
    Bytes now_, old_, new_;
    std::set<uint32_t> bad_;
    uint64_t hash_ = 0;
    int64_t differs_old_ = 0, differs_new_ = 0, programmed_ = 0; // words
};

class FlashState {
public:
    FlashState(const Camera& camera, const Flash& old, const Flash& finished);
    // Throws for a place outside the partition.
    void apply(const Operation& operation);
    [[nodiscard]] PartitionState& operator[](unsigned number) { return parts_[number]; }
    [[nodiscard]] const PartitionState& operator[](unsigned number) const { return parts_[number]; }
    [[nodiscard]] size_t size() const { return parts_.size(); }
    [[nodiscard]] uint64_t hash() const;
    [[nodiscard]] Flash flash() const;

private:
    std::vector<PartitionState> parts_;
};

uint64_t mixed(uint64_t value);

} // namespace vcam::explore
