// Buffer pools: equal blocks of the media zone. All under the page's lock.
#pragma once

#include "sim/models/page.hpp"

namespace vcam::media {

// Number of a new pool, kPools when there is no room for it.
uint32_t make_pool(Page& page, uint32_t module, uint32_t device, uint32_t block_size, uint32_t blocks);
void drop_pool(Pool& pool);
Pool* pool_at(Page& page, uint32_t number); // null: no such pool

// A free block's number, or kBlocks.
uint32_t take_block(Pool& pool, Block holder);
void free_block(Pool& pool, uint32_t block);
uint32_t in_use(const Pool& pool, Block by);
uint32_t physical_of(const Pool& pool, uint32_t block);
// The block that begins at an address, or kBlocks.
uint32_t block_at(const Pool& pool, uint32_t physical);

// What programs get to name a block.
uint32_t handle_of(uint32_t pool, uint32_t block);
// Its pool and block, if it names one that is handed out.
bool find_handle(Page& page, uint32_t handle, uint32_t& pool, uint32_t& block);

} // namespace vcam::media
