// Threads of a static program without a C++ runtime library: what the linker leaves out of the archive would
// show here, not in the unit programs, which name more of it. What goes wrong is told, and is the status.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

namespace {

int failed;

void equal(long is, long wanted, const char* what, int line)
{
    if (is == wanted) return;
    ++failed;
    printf("%d: %s is %ld, not %ld\n", line, what, is, wanted);
}

#define EQUAL(is, wanted) equal(long(is), long(wanted), #is, __LINE__)

constexpr int kThreads = 4, kRounds = 5000;

struct Shared {
    pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    sem_t go, places; // two threads at a time
    volatile int done, rounds, inside, most;
} shared;
std::atomic<int> inits;
thread_local int own = 7;

// A library built for a processor without atomic instructions may have locks that only look like some.
void enter_and_leave()
{
    sem_wait(&shared.places);
    pthread_mutex_lock(&shared.lock);
    shared.rounds = shared.rounds + 1;
    shared.inside = shared.inside + 1;
    if (shared.inside > shared.most) shared.most = shared.inside;
    pthread_mutex_unlock(&shared.lock);
    pthread_mutex_lock(&shared.lock);
    shared.inside = shared.inside - 1;
    pthread_mutex_unlock(&shared.lock);
    sem_post(&shared.places);
}

void* take_part(void*)
{
    sem_wait(&shared.go);
    pthread_once(&shared.once, [] { ++inits; });
    const int before = own++;
    errno = 100 + before; // each thread has its own
    for (int i = 0; i < kRounds; ++i) enter_and_leave();
    pthread_mutex_lock(&shared.lock);
    shared.done = shared.done + (before == 7 && errno == 107);
    pthread_cond_signal(&shared.changed);
    pthread_mutex_unlock(&shared.lock);
    return nullptr;
}

timespec in_seconds(time_t seconds)
{
    timespec end;
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += seconds;
    return end;
}

void threads_share_and_take_turns()
{
    EQUAL(sem_init(&shared.go, 0, 0), 0);
    EQUAL(sem_init(&shared.places, 0, 2), 0);
    errno = 0;
    pthread_t threads[kThreads];
    for (pthread_t& t : threads) EQUAL(pthread_create(&t, nullptr, take_part, nullptr), 0);
    for (int i = 0; i < kThreads; ++i) sem_post(&shared.go);
    pthread_mutex_lock(&shared.lock);
    while (shared.done < kThreads) pthread_cond_wait(&shared.changed, &shared.lock);
    pthread_mutex_unlock(&shared.lock);
    for (pthread_t t : threads) EQUAL(pthread_join(t, nullptr), 0);
    EQUAL(inits.load(), 1);
    EQUAL(own, 7);
    EQUAL(errno, 0);
    EQUAL(shared.rounds, kThreads * kRounds);
    EQUAL(shared.most <= 2, 1);
    int places = -1;
    EQUAL(sem_getvalue(&shared.places, &places), 0);
    EQUAL(places, 2);
}

void waits_end_at_their_time()
{
    sem_t none;
    sem_init(&none, 0, 0);
    const timespec now = in_seconds(0);
    pthread_mutex_lock(&shared.lock);
    EQUAL(pthread_cond_timedwait(&shared.changed, &shared.lock, &now), ETIMEDOUT);
    pthread_mutex_unlock(&shared.lock);
    EQUAL(sem_timedwait(&none, &now), -1);
    EQUAL(errno, ETIMEDOUT);
    EQUAL(sem_trywait(&none), -1);
    EQUAL(errno, EAGAIN);
}

// A detached thread with a small stack, and one that is cancelled in a wait.
void detach_and_cancel()
{
    static sem_t ran;
    sem_init(&ran, 0, 0);
    pthread_attr_t small;
    pthread_attr_init(&small);
    EQUAL(pthread_attr_setdetachstate(&small, PTHREAD_CREATE_DETACHED), 0);
    EQUAL(pthread_attr_setstacksize(&small, 64 * 1024), 0);
    pthread_t thread;
    auto body = [](void*) -> void* {
        char text[1024];
        snprintf(text, sizeof text, "%f", 0.5);
        sem_post(&ran);
        return nullptr;
    };
    EQUAL(pthread_create(&thread, &small, body, nullptr), 0);
    sem_wait(&ran);
    auto sleeper = [](void*) -> void* { return sleep(60), nullptr; };
    EQUAL(pthread_create(&thread, nullptr, sleeper, nullptr), 0);
    EQUAL(pthread_cancel(thread), 0);
    void* result = nullptr;
    EQUAL(pthread_join(thread, &result), 0);
    EQUAL(result == PTHREAD_CANCELED, 1);
}

} // namespace

int main()
{
    threads_share_and_take_turns();
    waits_end_at_their_time();
    detach_and_cancel();
    return failed != 0;
}
