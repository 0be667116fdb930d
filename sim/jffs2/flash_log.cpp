// A JFFS2 log that is written while it is in use.
#include "sim/jffs2/flash_log.hpp"
#include "sim/jffs2/jffs2_nodes.hpp"

#include <algorithm>
#include <cerrno>

namespace vcam::jffs2 {
namespace {

constexpr uint32_t kSmallLog = 5; // blocks; the kernel mounts nothing smaller

constexpr uint32_t rounded_up(uint32_t n, uint32_t unit) { return (n + unit - 1) / unit * unit; }

// What the kernel keeps free of ordinary writes: room for removals and for collecting, by the size of the flash.
uint64_t reserved_for_writes(const Geometry& g)
{
    const uint32_t blocks = g.size / g.erase_size;
    if (blocks < kSmallLog) return g.erase_size;
    const uint64_t more = (g.size / 50 + blocks * 100 + g.erase_size - 1) / g.erase_size;
    return (2 + more) * g.erase_size;
}

} // namespace

FlashLog::FlashLog(Medium& medium, NodeOwner& owner, Geometry geometry, std::span<const uint8_t> image,
                   const std::set<uint32_t>& bad)
    : medium_(medium), owner_(owner), geometry_(geometry), blocks_(geometry.size / geometry.erase_size),
      reserve_write_(reserved_for_writes(geometry)), reserve_remove_(geometry.erase_size)
{
    for (Block& b : blocks_) b.filled = geometry_.erase_size;
    for (const uint32_t at : bad) block_of(at).retired = true;
    for (const Room& found : find_room(image, geometry_.erase_size))
        block_of(found.begin).filled = rounded_up(found.begin % geometry_.erase_size, geometry_.page);
}

uint32_t FlashLog::room(const Block& b) const
{
    const uint32_t filled = std::max(b.filled, marker_size());
    return b.retired || filled >= geometry_.erase_size ? 0 : geometry_.erase_size - filled;
}

uint64_t FlashLog::unused() const
{
    uint64_t usable = 0;
    for (const Block& b : blocks_)
        if (!b.retired) usable += geometry_.erase_size - marker_size();
    return usable - std::min(usable, live_bytes_);
}

uint32_t FlashLog::available() const
{
    const uint64_t free = unused();
    return free > reserve_write_ ? uint32_t(free - reserve_write_) : 0;
}

void FlashLog::keep(uint32_t at, uint32_t size)
{
    live_[at] = size;
    live_bytes_ += size;
    block_of(at).live += size;
}

void FlashLog::drop(uint32_t at)
{
    const auto found = live_.find(at);
    if (found == live_.end()) return;
    live_bytes_ -= found->second;
    block_of(at).live -= found->second;
    live_.erase(found);
}

int FlashLog::append(uint32_t length, Use use, const std::function<Bytes()>& build, uint32_t& at)
{
    const uint32_t size = aligned(length);
    if (use == Use::write && unused() < reserve_write_ + size) return ENOSPC;
    if (use == Use::remove && unused() < reserve_remove_ + size) return ENOSPC;
    int error = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (error = reserve(size, use); error) return error;
        Bytes node = build();
        node.resize(size, 0xFF);
        if (error = put(node, at); error) continue;
        keep(at, size);
        return 0;
    }
    return error;
}

// The fullest choice last: a block in use with room, then an erased one, of which the last is for collecting.
uint32_t FlashLog::find_head(uint32_t size, Use use) const
{
    uint32_t found = kNone, blank = kNone, blanks = 0;
    for (uint32_t i = 0; i < blocks_.size(); ++i) {
        const Block& b = blocks_[i];
        if (i == victim_ || room(b) < size) continue;
        if (is_blank(b)) {
            if (!blanks++) blank = i;
        } else if (found == kNone || room(b) > room(blocks_[found])) {
            found = i;
        }
    }
    if (found != kNone) return found;
    return blanks > (use == Use::collect ? 0u : 1u) ? blank : kNone;
}

int FlashLog::reserve(uint32_t size, Use use)
{
    if (size > geometry_.erase_size - marker_size()) return EFBIG;
    // Room is gained a little at a time, and on flash with pages not always: what pads them is no room.
    for (size_t rounds = 0; head_ == kNone || room(blocks_[head_]) < size; ++rounds) {
        if (rounds > blocks_.size()) return ENOSPC;
        if (const int error = flush()) return error;
        head_ = find_head(size, use);
        if (head_ == kNone && use == Use::collect) return ENOSPC;
        if (head_ == kNone) {
            if (const int error = collect()) return error;
        } else if (is_blank(blocks_[head_]) && put_marker(head_) != 0) {
            blocks_[head_].retired = true;
        }
    }
    return 0;
}

int FlashLog::put_marker(uint32_t index)
{
    Block& b = blocks_[index];
    if (marker_size() == 0 || b.filled == marker_size()) return 0;
    b.filled = marker_size();
    return medium_.write(index * geometry_.erase_size, clean_marker());
}

int FlashLog::put(const Bytes& node, uint32_t& at)
{
    Block& b = blocks_[head_];
    at = head_ * geometry_.erase_size + b.filled;
    b.filled += uint32_t(node.size()); // also where the flash refuses: who knows what stands there now
    return geometry_.page == 1 ? medium_.write(at, node) : put_buffered(node);
}

int FlashLog::put_buffered(std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const size_t part = std::min<size_t>(bytes.size(), geometry_.page - buffer_.size());
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.begin() + long(part));
        bytes = bytes.subspan(part);
        if (buffer_.size() < geometry_.page) continue;
        const uint32_t left = uint32_t(bytes.size());
        const uint32_t end = head_ * geometry_.erase_size + blocks_[head_].filled - left;
        if (const int error = medium_.write(end - geometry_.page, buffer_)) {
            recover(end - geometry_.page);
            return error;
        }
        buffer_.clear();
    }
    return 0;
}

// The page was refused: the nodes that end in it are written again in another block.
int FlashLog::recover(uint32_t page_at)
{
    const Bytes lost = std::move(buffer_);
    buffer_.clear();
    blocks_[head_].filled = geometry_.erase_size;
    head_ = kNone;
    std::map<uint32_t, uint32_t> nodes;
    for (auto node = live_.begin(); node != live_.end(); ++node)
        if (node->first < page_at + geometry_.page && node->first + node->second > page_at)
            nodes.insert(*node);
    for (const auto& [from, size] : nodes) {
        Bytes bytes(size);
        const uint32_t before = from < page_at ? page_at - from : 0;
        if (medium_.read(from, std::span(bytes).first(before)) != 0) continue;
        std::copy_n(lost.begin() + (from < page_at ? 0 : from - page_at), size - before,
                    bytes.begin() + before);
        uint32_t to = 0;
        if (const int error = append(
                size, Use::collect, [&] { return bytes; }, to))
            return error;
        drop(from);
        owner_.moved(from, to);
    }
    return 0;
}

int FlashLog::flush()
{
    if (buffer_.empty()) return 0;
    const auto left = uint32_t(geometry_.page - buffer_.size());
    blocks_[head_].filled += left;
    return put_buffered(padding(left));
}

// Empties the block with the fewest needed bytes, and erases it.
int FlashLog::collect()
{
    victim_ = kNone;
    for (uint32_t i = 0; i < blocks_.size(); ++i) {
        const Block& b = blocks_[i];
        if (b.retired || is_blank(b) || b.live + marker_size() >= b.filled) continue;
        if (victim_ == kNone || b.live < blocks_[victim_].live) victim_ = i;
    }
    if (victim_ == kNone) return ENOSPC;
    head_ = kNone;
    int error = move_out(victim_);
    if (!error) error = flush();
    if (!error) error = erase(victim_);
    victim_ = kNone;
    return error;
}

int FlashLog::move_out(uint32_t victim)
{
    const uint32_t begin = victim * geometry_.erase_size;
    const std::map<uint32_t, uint32_t> nodes(live_.lower_bound(begin),
                                             live_.lower_bound(begin + geometry_.erase_size));
    for (const auto& [at, size] : nodes) {
        if (!live_.contains(at)) continue; // merged with another one
        if (!owner_.needs(at)) {
            drop(at);
            continue;
        }
        uint32_t most = 0;
        for (uint32_t i = 0; i < blocks_.size(); ++i)
            if (i != victim) most = std::max(most, room(blocks_[i]));
        const uint32_t still = blocks_[victim].live - size;
        if (most > still && owner_.merge(at, most - still)) continue;
        if (const int error = copy(at, size)) return error;
    }
    return 0;
}

int FlashLog::copy(uint32_t at, uint32_t size)
{
    Bytes bytes(size);
    if (const int error = medium_.read(at, bytes)) return error;
    uint32_t to = 0;
    if (const int error = append(
            size, Use::collect, [&] { return bytes; }, to))
        return error;
    drop(at);
    owner_.moved(at, to);
    return 0;
}

// A block that cannot be erased is not used again; what stands in it is old.
int FlashLog::erase(uint32_t index)
{
    const uint32_t begin = index * geometry_.erase_size;
    Block& b = blocks_[index];
    if (medium_.erase(begin, geometry_.erase_size) != 0) {
        b.retired = true;
        return 0;
    }
    b.filled = 0;
    owner_.erased(begin, begin + geometry_.erase_size);
    if (put_marker(index) != 0) b.retired = true;
    return 0;
}

} // namespace vcam::jffs2
