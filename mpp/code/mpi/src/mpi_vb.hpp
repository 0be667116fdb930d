// What the modules of this library ask of the buffer pools.
#pragma once

#include <cstdint>

namespace zep {

// HI_MPI_VB_GetBlkVirAddr for `length` bytes that must lie within the pool: an address that came from a
// driver is checked before it is used. MPP_ERR_PARAM when they do not.
int32_t vb_translate(uint32_t pool, uint32_t physical, uint32_t length, uint8_t** address);

// Unmaps a pool that its driver is about to give up, in use or not: the same number will be other memory.
void vb_forget(uint32_t pool);

} // namespace zep
