// Memory shared between processes, guarded by a record lock and a semaphore.
#include "common/cmmap.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(CMMAP_S) == 44 && offsetof(CMMAP_S, sem_id) == 20 && offsetof(CMMAP_S, Unlock) == 40);
#endif

namespace {

constexpr int kSemFlags = 03666; // IPC_CREAT, IPC_EXCL, permissions 0666
static_assert(kSemFlags == (IPC_CREAT | IPC_EXCL | 0666));

// The C library leaves this to its callers.
union SemArgument {
    int value;
    void* pointer;
};

// Zeroes what is there and cuts the file afterwards: emptied first (O_TRUNC), a region that others have
// mapped would be a bus error in the middle of their copies. A full disk leaves the file short and so
// unmapped.
void fill_with_zeros(int fd, uint32_t size)
{
    static constexpr char kZeros[4096] = {};
    uint32_t done = 0;
    while (done < size) {
        ssize_t out = write(fd, kZeros, std::min<size_t>(size - done, sizeof kZeros));
        if (out < 0 && errno == EINTR) continue;
        if (out <= 0) break;
        done += uint32_t(out);
    }
    [[maybe_unused]] int cut = ftruncate(fd, done); // a file left too long does no harm
}

// The create descriptor stays open beside the attach one: closing any descriptor of the file would
// release this process's record locks on it.
void open_file(CMMAP_S* region, const char* path, uint32_t flags)
{
    if (flags & CMMAP_CREATE) region->fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (flags & CMMAP_ATTACH) region->fd = open(path, O_RDWR | O_CLOEXEC);
}

void init_semaphore(CMMAP_S* region)
{
    int set = 0;
    region->sem_id = semget(region->key, 1, kSemFlags);
    if (region->sem_id >= 0) {
        set = semctl(region->sem_id, 0, SETVAL, SemArgument{.value = 1});
        region->owner = set >= 0;
    } else if (errno == EEXIST) {
        region->sem_id = semget(region->key, 1, 0);
    }
    if (region->sem_id >= 0 && set >= 0) return;
    printf("[%s] error, reason(%s,%d,%d)\n", "CMMAP_InitLock", strerror(errno), region->sem_id, set);
    // Its first value is 0: a process that attaches to it would wait for ever.
    if (set < 0) semctl(region->sem_id, 0, IPC_RMID);
    region->sem_id = -1;
}

// Bytes of the region that the file holds; another creator may have made it shorter since it was mapped.
// Only regular files have a meaningful size.
uint64_t held(const CMMAP_S* region)
{
    struct stat file;
    if (fstat(region->fd, &file) < 0 || !S_ISREG(file.st_mode)) return region->size;
    return std::min(uint64_t(file.st_size), uint64_t(region->size));
}

// A mapping beyond the file's end would be a bus error at the first copy.
bool map_file(CMMAP_S* region)
{
    region->address = MAP_FAILED;
    if (held(region) < region->size)
        errno = ENXIO;
    else
        region->address = mmap(nullptr, region->size, PROT_READ | PROT_WRITE, MAP_SHARED, region->fd, 0);
    return region->address != MAP_FAILED;
}

int set_record_lock(CMMAP_S* region, int command, short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    int result;
    do result = fcntl(region->fd, command, &lock);
    while (result < 0 && errno == EINTR && command == F_SETLKW);
    return result;
}

// ThreadSanitizer does not know these semaphores: it learns here which thread waited for which.
void note_order([[maybe_unused]] CMMAP_S* region, [[maybe_unused]] bool taken)
{
#ifdef __SANITIZE_THREAD__
    taken ? __tsan_acquire(region) : __tsan_release(region);
#endif
}

void change_semaphore(CMMAP_S* region, short by, const char* function)
{
    sembuf operation = {0, by, SEM_UNDO};
    int result;
    if (by > 0) note_order(region, false);
    do result = semop(region->sem_id, &operation, 1);
    while (result < 0 && errno == EINTR);
    if (by < 0 && result == 0) note_order(region, true);
    if (result < 0) printf("[%s] error semop, reason(%s, %d)\n", function, strerror(errno), region->sem_id);
}

// Up to the end of the last page: a length is not compared with the size, and programs that share a record
// slightly longer than the size they give depend on that.
bool within_pages(uint64_t bytes, uint32_t length)
{
    const uint64_t page = uint64_t(sysconf(_SC_PAGESIZE));
    return length <= (bytes + page - 1) / page * page;
}

int32_t copy_locked(CMMAP_S* region, void* to, const void* from, uint32_t length)
{
    if (!region->address || region->address == MAP_FAILED || !within_pages(region->size, length)) return -1;
    region->Lock(region);
    const bool fits = within_pages(held(region), length);
    if (fits) memcpy(to, from, length);
    region->Unlock(region);
    return fits ? 0 : -1;
}

} // namespace

int32_t CMMAP_Init(CMMAP_S* region, const char* path, int32_t key, uint32_t flags, uint32_t size)
{
    *region = {-1,         nullptr,     size,       0,           key, -1, CMMAP_DeinitLock,
               CMMAP_Read, CMMAP_Write, CMMAP_Lock, CMMAP_Unlock};
    open_file(region, path, flags);
    if (region->fd < 0) {
        printf("[%s] error open, reason(%s)\n", __func__, strerror(errno));
        return -1;
    }
    if (flags & CMMAP_CREATE) fill_with_zeros(region->fd, size);
    init_semaphore(region);
    if (map_file(region)) return 0;
    printf("[%s] error mmap, reason(%s)\n", __func__, strerror(errno));
    return -1;
}

int32_t CMMAP_Read(CMMAP_S* region, void* to, uint32_t length)
{
    return copy_locked(region, to, region->address, length);
}

int32_t CMMAP_Write(CMMAP_S* region, const void* from, uint32_t length)
{
    return copy_locked(region, region->address, from, length);
}

int32_t CMMAP_Lock(CMMAP_S* region)
{
    CMMAP_FileLock(region);
    CMMAP_SemLock(region);
    return 0;
}

int32_t CMMAP_Unlock(CMMAP_S* region)
{
    CMMAP_SemUnlock(region);
    CMMAP_FileUnlock(region);
    return 0;
}

void CMMAP_FileLock(CMMAP_S* region)
{
    if (set_record_lock(region, F_SETLKW, F_WRLCK) < 0)
        printf("[%s] error fcntl, reason(%s)\n", __func__, strerror(errno));
}

void CMMAP_SemLock(CMMAP_S* region) { change_semaphore(region, -1, __func__); }
void CMMAP_SemUnlock(CMMAP_S* region) { change_semaphore(region, +1, __func__); }

void CMMAP_FileUnlock(CMMAP_S* region)
{
    if (set_record_lock(region, F_SETLK, F_UNLCK) < 0)
        printf("[%s] error fcntl, reason(%s)\n", __func__, strerror(errno));
}

int32_t CMMAP_DeinitLock(CMMAP_S* region)
{
    if (region->owner == 1) {
        region->owner = 0; // a second end must not remove a set that another process has made meanwhile
        if (semctl(region->sem_id, 0, IPC_RMID) < 0)
            printf("[%s] error semctl, reason(%s)\n", __func__, strerror(errno));
    }
    if (region->address) {
        if (region->address != MAP_FAILED) munmap(region->address, region->size);
        region->address = nullptr;
    }
    if (region->fd < 0) return region->fd;
    int fd = region->fd;
    region->fd = -1;
    return close(fd);
}
