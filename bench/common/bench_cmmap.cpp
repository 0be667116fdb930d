// A locked copy of 4 KiB through a shared region, beside the same copy under a process-shared mutex; alone,
// and with a second process that copies all the time.
#include "bench/common/measure.hpp"
#include "common/cmmap.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>

namespace {

constexpr uint32_t kSize = 4096;
constexpr int kCopies = 200; // a round is short, so that some rounds meet no other work
constexpr int kRounds = 500;

struct MutexRegion {
    pthread_mutex_t lock;
    char bytes[kSize];
};

char buffer[kSize];

class Region {
public:
    Region()
    {
        // A key of this process's own: nothing that others use is touched.
        if (CMMAP_Init(&region_, path_.c_str(), 0x5B000000 | getpid(), CMMAP_CREATE, kSize) != 0) exit(1);
    }
    ~Region()
    {
        region_.Deinit(&region_);
        unlink(path_.c_str());
    }
    void copy() { region_.Write(&region_, buffer, kSize); }

private:
    std::string path_ = "/dev/shm/zep-bench-cmmap." + std::to_string(getpid());
    CMMAP_S region_;
};

MutexRegion* make_mutex_region()
{
    void* at = mmap(nullptr, sizeof(MutexRegion), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) exit(1);
    auto* region = static_cast<MutexRegion*>(at);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    // As the region's locks: free again when its holder dies.
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&region->lock, &attributes);
    return region;
}

void copy_under(MutexRegion* region)
{
    // The second process may be ended inside: the next one takes the lock over.
    if (pthread_mutex_lock(&region->lock) == EOWNERDEAD) pthread_mutex_consistent(&region->lock);
    memcpy(region->bytes, buffer, kSize);
    pthread_mutex_unlock(&region->lock);
}

// The second process copies until it is ended.
double measure(const std::function<void()>& copy, bool contended)
{
    pid_t other = contended ? fork() : -1;
    if (other == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) copy();
    }
    double ms = best_ms(kRounds, [&] {
        for (int i = 0; i < kCopies; ++i) copy();
    });
    if (other > 0) {
        kill(other, SIGKILL);
        waitpid(other, nullptr, 0);
    }
    return ms / kCopies * 1000;
}

} // namespace

int main()
{
    Region region;
    MutexRegion* peer = make_mutex_region();
    printf("a locked copy of %u bytes, best of %d\n", kSize, kRounds);
    for (bool contended : {false, true}) {
        double ours = measure([&] { region.copy(); }, contended);
        double mutex = measure([&] { copy_under(peer); }, contended);
        printf("  %-24s region %8.3f us, mutex %8.3f us, ratio %.1f\n",
               contended ? "beside a second process" : "alone", ours, mutex, ours / mutex);
    }
}
