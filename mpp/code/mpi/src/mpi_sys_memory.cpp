// System layer: descriptors, physical memory, registers, media memory, log.
#include "mpi/src/mmz_uapi.h"
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_sys.hpp"

#include <cstring>
#include <sys/mman.h>

namespace zep {

constinit Driver sys_driver(SYS_DEVICE, "open sys");
constinit Driver log_driver(LOG_DEVICE, "open");
constinit Driver mem_driver("/dev/mem", "Open dev/mem error", O_RDWR | O_SYNC);

} // namespace zep

namespace {

constexpr uint64_t kPage = 4096;

// Two descriptors of one device: the cache's is its own.
constinit zep::Driver mmz_driver(MMZ_DEVICE, "open mmz");
constinit zep::Driver cache_driver(MMZ_DEVICE, "open mmz");

// Bytes of the whole pages that hold `size` bytes from an offset in the first one.
constexpr uint64_t page_length(uint64_t offset, uint64_t size)
{
    return ((size - 1 + offset) & ~(kPage - 1)) + kPage;
}

void copy_name(char (&to)[16], const char* from)
{
    if (from) strncpy(to, from, sizeof to - 1);
}

int32_t fail(const char* message)
{
    fputs(message, stderr);
    return -1;
}

int32_t allocate(uint32_t* physical, void** address, const char* block, const char* zone, uint32_t size,
                 uint32_t map)
{
    if (!physical || !address) return -1;
    MMZ_BLOCK_S record = {};
    record.u32Size = size;
    record.u32Access = MMZ_ACCESS_SHARED_RW;
    copy_name(record.aszBlockName, block);
    copy_name(record.aszZoneName, zone);
    if (mmz_driver.open() != 0) return -1;
    if (mmz_driver.request(MMZ_REQ_ALLOC, &record) != 0) return fail("System alloc mmz memory failed!\n");
    // The block stays allocated when it cannot be mapped: its owner frees it by the address in the driver's
    // list.
    if (mmz_driver.request(map, &record) != 0) return fail("System remap mmz memory failed!\n");
    *physical = record.u32PhysAddr;
    *address = reinterpret_cast<void*>(uintptr_t(record.u32VirtAddr));
    return 0;
}

int32_t close_driver(zep::Driver& driver, const char* complaint)
{
    if (driver.fd() <= 0) return 0;
    int32_t result = close(driver.fd());
    if (result != 0) {
        perror(complaint);
        return result;
    }
    driver.forget();
    return 0;
}

} // namespace

int32_t HI_MPI_SYS_MmzAlloc(uint32_t* pu32PhysAddr, void** ppVirtAddr, const char* strMmb,
                            const char* strZone, uint32_t u32Size)
{
    return allocate(pu32PhysAddr, ppVirtAddr, strMmb, strZone, u32Size, MMZ_REQ_MAP);
}

int32_t HI_MPI_SYS_MmzAllocCached(uint32_t* pu32PhysAddr, void** ppVirtAddr, const char* strMmb,
                                  const char* strZone, uint32_t u32Size)
{
    return allocate(pu32PhysAddr, ppVirtAddr, strMmb, strZone, u32Size, MMZ_REQ_MAP_CACHED);
}

int32_t HI_MPI_SYS_MmzFree(uint32_t u32PhysAddr)
{
    MMZ_BLOCK_S record = {};
    record.u32PhysAddr = u32PhysAddr;
    if (mmz_driver.open() != 0) return -1;
    if (mmz_driver.request(MMZ_REQ_UNMAP, &record) != 0) return fail("System unmap mmz memory failed!\n");
    if (mmz_driver.request(MMZ_REQ_FREE, &record) != 0) return fail("System free mmz memory failed!\n");
    return 0;
}

int32_t HI_MPI_SYS_MmzFlushCache(uint32_t u32PhysAddr, void* pVirtAddr, uint32_t u32Size)
{
    if (u32PhysAddr == 0) return cache_driver.request(MMZ_REQ_FLUSH_ALL);
    MMZ_RANGE_S range = {u32PhysAddr, uint32_t(reinterpret_cast<uintptr_t>(pVirtAddr)), u32Size};
    return cache_driver.request(MMZ_REQ_FLUSH_RANGE, &range);
}

void* HI_MPI_SYS_Mmap(uint32_t u32PhysAddr, uint32_t u32Size)
{
    if (u32Size == 0 || zep::mem_driver.open() != 0) return nullptr;
    const uint64_t offset = u32PhysAddr % kPage, length = page_length(offset, u32Size);
    // Beyond the end of what 32 bits address there is nothing, and a length cut to them would be too short.
    if (u32PhysAddr - offset + length > uint64_t(UINT32_MAX) + 1) return nullptr;
    void* base = mmap(nullptr, size_t(length), PROT_READ | PROT_WRITE, MAP_SHARED, zep::mem_driver.fd(),
                      off_t(u32PhysAddr - offset));
    if (base != MAP_FAILED) return static_cast<char*>(base) + offset;
    perror("mmap error");
    return nullptr;
}

int32_t HI_MPI_SYS_Munmap(void* pVirtAddr, uint32_t u32Size)
{
    if (u32Size == 0) return -1;
    uint64_t offset = reinterpret_cast<uintptr_t>(pVirtAddr) % kPage;
    return munmap(static_cast<char*>(pVirtAddr) - offset, size_t(page_length(offset, u32Size)));
}

int32_t HI_MPI_SYS_GetReg(uint32_t u32PhysAddr, uint32_t* pu32Value)
{
    if (!pu32Value) return MPP_ERROR(HI_ID_SYS, MPP_ERR_NULL);
    void* at = HI_MPI_SYS_Mmap(u32PhysAddr, sizeof *pu32Value);
    if (!at) return -1;
    *pu32Value = *static_cast<volatile uint32_t*>(at);
    HI_MPI_SYS_Munmap(at, sizeof *pu32Value);
    return 0;
}

int32_t HI_MPI_SYS_SetReg(uint32_t u32PhysAddr, uint32_t u32Value)
{
    void* at = HI_MPI_SYS_Mmap(u32PhysAddr, sizeof u32Value);
    if (!at) return -1;
    *static_cast<volatile uint32_t*>(at) = u32Value;
    HI_MPI_SYS_Munmap(at, sizeof u32Value);
    return 0;
}

int32_t HI_MPI_SYS_CloseFd(void)
{
    if (int32_t failed = close_driver(zep::log_driver, "Close Log Fail")) return failed;
    if (int32_t failed = close_driver(zep::sys_driver, "Close SYS Fail")) return failed;
    return close_driver(zep::mem_driver, "Close mem/dev Fail");
}

int32_t HI_MPI_LOG_SetLevelConf(LOG_LEVEL_CONF_S* pstConf)
{
    if (!pstConf) return fail("null ptr!\n");
    return zep::log_driver.request(LOG_REQ_SET_LEVEL, pstConf);
}

int32_t HI_MPI_LOG_GetLevelConf(LOG_LEVEL_CONF_S* pstConf)
{
    if (!pstConf) return fail("null ptr!\n");
    return zep::log_driver.request(LOG_REQ_GET_LEVEL, pstConf);
}

int32_t HI_MPI_LOG_SetWaitFlag(uint32_t u32Wait)
{
    return zep::log_driver.request(LOG_REQ_SET_WAIT, &u32Wait);
}

int32_t HI_MPI_LOG_Read(void* pBuffer, uint32_t u32Length)
{
    if (int failed = zep::log_driver.open()) return failed;
    return int32_t(read(zep::log_driver.fd(), pBuffer, u32Length));
}

int32_t HI_MPI_LOG_Close(void)
{
    if (zep::log_driver.fd() < 0) return 0;
    close(zep::log_driver.fd());
    zep::log_driver.forget();
    return -1; // kept: callers take it for "was open"
}
