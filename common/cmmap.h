#ifndef COMMON_CMMAP_H
#define COMMON_CMMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Memory shared between processes through a mapped file. Two locks guard every copy: an fcntl record lock on
 * the file's first byte, then a System V semaphore. Both are released when a holder dies. The record lock
 * excludes other processes, the semaphore also other threads of this one.
 */

#define CMMAP_CREATE 1u /* make the file anew (mode 0644) and zero-fill it to the size */
#define CMMAP_ATTACH 2u /* open an existing file; with both, this descriptor is the one used */

typedef struct CMMAP CMMAP_S;

struct CMMAP {
    int32_t fd;     /* -1 when closed */
    void* address;  /* MAP_FAILED when mapping failed, null after the end */
    uint32_t size;  /* of the region, bytes */
    int32_t owner;  /* 1: this object made the semaphore and removes it */
    int32_t key;    /* System V key of the semaphore */
    int32_t sem_id; /* -1 when no semaphore could be had */
    int32_t (*Deinit)(CMMAP_S* region);
    int32_t (*Read)(CMMAP_S* region, void* to, uint32_t length);
    int32_t (*Write)(CMMAP_S* region, const void* from, uint32_t length);
    int32_t (*Lock)(CMMAP_S* region);
    int32_t (*Unlock)(CMMAP_S* region);
};

/**
 * Open and map a region and get its semaphore. Without a semaphore the region still works, guarded by the
 * record lock alone. Creating zeroes a region that others have mapped, and gives the file the new size.
 *
 * @param region  the caller's; ended with CMMAP_DeinitLock, also after a failure
 * @param path    the file; every user of the region names the same one
 * @param key     System V key that the users agree on
 * @param flags   CMMAP_CREATE, CMMAP_ATTACH or both
 * @param size    bytes; attaching to a shorter file fails
 * @return 0; -1 when the file cannot be opened or mapped, after one line on standard output
 */
int32_t CMMAP_Init(CMMAP_S* region, const char* path, int32_t key, uint32_t flags, uint32_t size);

/**
 * Copy from the start of the region under both locks. A lock that fails is reported and the copy is made all
 * the same. Waits for other holders.
 *
 * @param length  bytes; not compared with the size, only with the mapped pages and the file as it is
 * @return 0; -1 without a mapping, or for a length beyond the mapped pages or a file made shorter since
 */
int32_t CMMAP_Read(CMMAP_S* region, void* to, uint32_t length);

/** Copy to the start of the region, as CMMAP_Read copies from it. @return as CMMAP_Read */
int32_t CMMAP_Write(CMMAP_S* region, const void* from, uint32_t length);

/** Take both locks: the record lock, then the semaphore. Waits. @return always 0 */
int32_t CMMAP_Lock(CMMAP_S* region);

/** Release both locks in the reverse order. @return always 0 */
int32_t CMMAP_Unlock(CMMAP_S* region);

/** Take the record lock, the first of CMMAP_Lock. Waits. A failure prints one line on standard output. */
void CMMAP_FileLock(CMMAP_S* region);

/** Take the semaphore, the second of CMMAP_Lock. Waits. A failure prints one line on standard output. */
void CMMAP_SemLock(CMMAP_S* region);

/** Release the semaphore, the first of CMMAP_Unlock. A failure prints one line on standard output. */
void CMMAP_SemUnlock(CMMAP_S* region);

/** Release the record lock, the second of CMMAP_Unlock. A failure prints one line on standard output. */
void CMMAP_FileUnlock(CMMAP_S* region);

/**
 * End a region: the owner removes the semaphore (others may still be using it), then the mapping and the
 * descriptor go. The file stays. Ending twice does nothing.
 *
 * @return close's result; the descriptor when it was negative already
 */
int32_t CMMAP_DeinitLock(CMMAP_S* region);

#ifdef __cplusplus
}
#endif

#endif
