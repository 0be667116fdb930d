// A JFFS2 log that is written while it is in use: where the next node goes, which nodes are still needed, and garbage
// collection when erased blocks run out.
//
// Nodes are appended to one block until it is full. One erased block is kept back, so that the needed nodes of another
// block can always be copied before that block is erased. On flash with pages, writes wait in a buffer until their page is
// full or flush() is called, as in the real driver.
#pragma once

#include "sim/jffs2/jffs2_log.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <vector>

namespace vcam::jffs2 {

// The flash below a log. All return 0 or an errno.
class Medium {
public:
    virtual int read(uint32_t at, std::span<uint8_t> out) = 0;
    virtual int write(uint32_t at, std::span<const uint8_t> bytes) = 0;
    virtual int erase(uint32_t block_at, uint32_t size) = 0;

protected:
    ~Medium() = default;
};

struct Geometry {
    uint32_t size = 0, erase_size = 0;
    uint32_t page = 1; // bytes that are programmed at once; 1: any number, and erased blocks carry a marker
};

// Whoever knows what the nodes are for.
class NodeOwner {
public:
    // The node is on its way out: false when nobody needs it any more.
    virtual bool needs(uint32_t at) = 0;
    // Writes the node's contents together with what belongs beside them, if that takes at most `room` bytes. True when
    // the node at `at` is then no longer needed.
    virtual bool merge(uint32_t at, uint32_t room) = 0;
    virtual void moved(uint32_t from, uint32_t to) = 0;
    // All that stood in the stretch is gone.
    virtual void erased(uint32_t begin, uint32_t end) = 0;

protected:
    ~NodeOwner() = default;
};

enum class Use : uint8_t { write, remove, collect }; // a removal may use room that a write must leave

class FlashLog {
public:
    // The image as it stands, bad blocks filled with zeros and listed.
    FlashLog(Medium& medium, NodeOwner& owner, Geometry geometry, std::span<const uint8_t> image,
             const std::set<uint32_t>& bad);

    // Appends a node that is needed, of `size` bytes; `at` is its place. It is built when there is room for it: making room
    // may write newer versions of older nodes. 0 or an errno: ENOSPC when the log is full, EIO when the flash has refused it
    // in two places.
    int append(uint32_t size, Use use, const std::function<Bytes()>& build, uint32_t& at);
    // The node at the place is needed; nodes of an image that was found are made known in this way.
    void keep(uint32_t at, uint32_t size);
    void drop(uint32_t at);
    // Writes what waits for its page to fill. 0 or an errno.
    int flush();
    [[nodiscard]] bool has_buffered() const { return !buffer_.empty(); }
    [[nodiscard]] uint32_t available() const; // bytes that writes may still take
    [[nodiscard]] const Geometry& geometry() const { return geometry_; }

private:
    struct Block {
        uint32_t filled = 0; // bytes from its begin that no node may take any more
        uint32_t live = 0;
        bool retired = false;
    };
    static constexpr uint32_t kNone = UINT32_MAX;

    [[nodiscard]] uint32_t marker_size() const { return geometry_.page == 1 ? kHeaderSize : 0; }
    [[nodiscard]] bool is_blank(const Block& b) const { return !b.retired && b.filled <= marker_size(); }
    [[nodiscard]] uint32_t room(const Block& b) const;
    [[nodiscard]] uint64_t unused() const;
    Block& block_of(uint32_t at) { return blocks_[at / geometry_.erase_size]; }
    int reserve(uint32_t size, Use use);
    uint32_t find_head(uint32_t size, Use use) const;
    int put(const Bytes& node, uint32_t& at);
    int put_marker(uint32_t index);
    int put_buffered(std::span<const uint8_t> bytes);
    int write_page(std::span<const uint8_t> page);
    int recover(uint32_t page_at);
    int collect();
    int move_out(uint32_t victim);
    int copy(uint32_t at, uint32_t size);
    int erase(uint32_t index);

    Medium& medium_;
    NodeOwner& owner_;
    Geometry geometry_;
    std::vector<Block> blocks_;
    std::map<uint32_t, uint32_t> live_; // place, size
    uint64_t live_bytes_ = 0;
    uint32_t head_ = kNone, victim_ = kNone; // block numbers
    uint64_t reserve_write_, reserve_remove_;
    Bytes buffer_; // begins at the page that the head has reached
};

} // namespace vcam::jffs2
