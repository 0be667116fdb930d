// Buffer pools in the media zone.
#include "sim/models/pools.hpp"
#include "sim/models/memory.hpp"

#include <algorithm>
#include <iterator>

namespace vcam::media {
namespace {

constexpr uint32_t kHandle = 0x10000000, kHandleBits = 12;
constexpr uint32_t kCacheLine = 64;

} // namespace

uint32_t make_pool(Page& page, uint32_t module, uint32_t device, uint32_t block_size, uint32_t blocks)
{
    if (block_size == 0 || block_size > kZoneSize || blocks == 0 || blocks > kBlocks) return kPools;
    const auto pool = std::find_if(std::begin(page.vb.pools), std::end(page.vb.pools),
                                   [](const Pool& p) { return !p.used; });
    if (pool == std::end(page.vb.pools)) return kPools;
    const uint32_t whole = (block_size + kCacheLine - 1) / kCacheLine * kCacheLine;
    const uint32_t physical = allocate(page, uint64_t(whole) * blocks);
    if (!physical) return kPools;
    *pool = {};
    pool->used = 1;
    pool->module = module;
    pool->device = device;
    pool->block_size = whole;
    pool->blocks = blocks;
    pool->physical = physical;
    return uint32_t(pool - page.vb.pools);
}

void drop_pool(Pool& pool) { pool = {}; }

Pool* pool_at(Page& page, uint32_t number)
{
    return number < kPools && page.vb.pools[number].used ? &page.vb.pools[number] : nullptr;
}

uint32_t take_block(Pool& pool, Block holder)
{
    const auto end = pool.state + pool.blocks;
    const auto found = std::find(pool.state, end, Block::free);
    if (found == end) return kBlocks;
    *found = holder;
    const auto busy = uint32_t(end - pool.state - std::count(pool.state, end, Block::free));
    pool.most_in_use = std::max(pool.most_in_use, busy);
    return uint32_t(found - pool.state);
}

void free_block(Pool& pool, uint32_t block) { pool.state[block] = Block::free; }

uint32_t in_use(const Pool& pool, Block by)
{
    return uint32_t(std::count(pool.state, pool.state + pool.blocks, by));
}

uint32_t physical_of(const Pool& pool, uint32_t block) { return pool.physical + block * pool.block_size; }

uint32_t block_at(const Pool& pool, uint32_t physical)
{
    const uint32_t offset = physical - pool.physical;
    if (physical < pool.physical || offset % pool.block_size) return kBlocks;
    return offset / pool.block_size < pool.blocks ? offset / pool.block_size : kBlocks;
}

uint32_t handle_of(uint32_t pool, uint32_t block) { return kHandle | pool << kHandleBits | block; }

bool find_handle(Page& page, uint32_t handle, uint32_t& pool, uint32_t& block)
{
    pool = (handle & ~kHandle) >> kHandleBits;
    block = handle & ((1u << kHandleBits) - 1);
    const Pool* found = handle & kHandle ? pool_at(page, pool) : nullptr;
    return found && block < found->blocks && found->state[block] == Block::user;
}

} // namespace vcam::media
