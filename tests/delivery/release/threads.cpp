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

constexpr int kThreads = 4;

struct Shared {
    pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    sem_t go;
    int done = 0;
} shared;
std::atomic<int> inits;
thread_local int own = 7;

void* take_part(void*)
{
    sem_wait(&shared.go);
    pthread_once(&shared.once, [] { ++inits; });
    const int before = own++;
    errno = 100 + before; // each thread has its own
    pthread_mutex_lock(&shared.lock);
    shared.done += before == 7 && errno == 107;
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

void share_once_semaphore_and_condition()
{
    EQUAL(sem_init(&shared.go, 0, 0), 0);
    errno = 0;
    pthread_t threads[kThreads];
    for (pthread_t& t : threads) EQUAL(pthread_create(&t, nullptr, take_part, nullptr), 0);
    for (int i = 0; i < kThreads; ++i) sem_post(&shared.go);
    const timespec end = in_seconds(30);
    pthread_mutex_lock(&shared.lock);
    int late = 0;
    while (shared.done < kThreads && !late)
        late = pthread_cond_timedwait(&shared.changed, &shared.lock, &end);
    pthread_mutex_unlock(&shared.lock);
    for (pthread_t t : threads) EQUAL(pthread_join(t, nullptr), 0);
    EQUAL(late, 0);
    EQUAL(inits.load(), 1);
    EQUAL(own, 7);
    EQUAL(errno, 0);
}

void waits_end_at_their_time()
{
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t never = PTHREAD_COND_INITIALIZER;
    sem_t none;
    sem_init(&none, 0, 0);
    const timespec now = in_seconds(0);
    pthread_mutex_lock(&lock);
    EQUAL(pthread_cond_timedwait(&never, &lock, &now), ETIMEDOUT);
    pthread_mutex_unlock(&lock);
    EQUAL(sem_timedwait(&none, &now), -1);
    EQUAL(errno, ETIMEDOUT);
    EQUAL(sem_trywait(&none), -1);
    EQUAL(errno, EAGAIN);
}

struct Contended {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    sem_t places;
    volatile int rounds, inside, most;
} contended;

void* crowd(void*)
{
    for (int i = 0; i < 5000; ++i) {
        sem_wait(&contended.places);
        pthread_mutex_lock(&contended.lock);
        contended.rounds = contended.rounds + 1;
        contended.inside = contended.inside + 1;
        if (contended.inside > contended.most) contended.most = contended.inside;
        pthread_mutex_unlock(&contended.lock);
        pthread_mutex_lock(&contended.lock);
        contended.inside = contended.inside - 1;
        pthread_mutex_unlock(&contended.lock);
        sem_post(&contended.places);
    }
    return nullptr;
}

// A library built for a processor without atomic instructions may have locks that only look like some.
void locks_lock_and_semaphores_count()
{
    EQUAL(sem_init(&contended.places, 0, 2), 0);
    pthread_t threads[kThreads];
    for (pthread_t& t : threads) EQUAL(pthread_create(&t, nullptr, crowd, nullptr), 0);
    for (pthread_t t : threads) EQUAL(pthread_join(t, nullptr), 0);
    EQUAL(contended.rounds, kThreads * 5000);
    EQUAL(contended.inside, 0);
    EQUAL(contended.most <= 2, 1);
    int places = -1;
    EQUAL(sem_getvalue(&contended.places, &places), 0);
    EQUAL(places, 2);
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
    const timespec end = in_seconds(30);
    EQUAL(sem_timedwait(&ran, &end), 0);
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
    alarm(100); // a wait that never ends must not keep the tests
    share_once_semaphore_and_condition();
    waits_end_at_their_time();
    locks_lock_and_semaphores_count();
    detach_and_cancel();
    return failed != 0;
}
