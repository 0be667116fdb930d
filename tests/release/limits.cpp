// What the product needs of the release's C library, and where that one is known to differ from others.
#include "tests/release/checks.hpp"
#include "tests/unit/common/known_hashes.hpp"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <crypt.h>
#include <ctime>
#include <pthread.h>
#include <pwd.h>
#include <semaphore.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kThreads = 4;

void crypt_makes_traditional_hashes()
{
    for (const KnownHash& known : kKnownHashes) {
        const char salt[] = {known.hash[0], known.hash[1], '\0'};
        TEXT(crypt(known.password, salt), known.hash);
        TEXT(crypt(known.password, known.hash), known.hash); // the hash as its own salt
    }
    // Unlike elsewhere no error: who compares must refuse an empty stored hash first.
    TEXT(crypt("password", ""), "");
}

void putpwent_writes_the_lines_that_were_read()
{
    static char lines[] = "root:abJnggxhB/yWI:0:0:superuser:/:/bin/sh\n"
                          "nobody:x:65534:65534:nobody:/home:/bin/false\n"
                          "empty::1000:1000::/home:/bin/sh\n";
    FILE* in = fmemopen(lines, sizeof lines - 1, "r");
    char copy[sizeof lines + 16] = {};
    FILE* out = fmemopen(copy, sizeof copy, "w");
    if (!in || !out) return EQUAL(errno, 0);
    while (const passwd* account = fgetpwent(in)) EQUAL(putpwent(account, out), 0);
    fclose(in);
    fclose(out);
    TEXT(copy, lines);
}

struct Shared {
    pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    sem_t go;
    int done = 0;
} shared;
std::atomic<int> inits;
thread_local int own = 7;
__thread int own_errno_seen;

void* take_part(void*)
{
    sem_wait(&shared.go);
    pthread_once(&shared.once, [] { ++inits; });
    const int before = own++;
    errno = 100 + before; // each thread has its own
    pthread_mutex_lock(&shared.lock);
    own_errno_seen = errno;
    shared.done += before == 7 && own_errno_seen == 107;
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

void threads_share_once_semaphore_and_condition()
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
    sem_destroy(&shared.go);
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

// A detached thread with a small stack, and one that is cancelled in a wait.
void threads_detach_and_cancel()
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
    EQUAL(pthread_create(
              &thread, nullptr, [](void*) -> void* { return sleep(60), nullptr; }, nullptr),
          0);
    EQUAL(pthread_cancel(thread), 0);
    void* result = nullptr;
    EQUAL(pthread_join(thread, &result), 0);
    EQUAL(result == PTHREAD_CANCELED, 1);
}

void a_dead_process_gives_back_its_semaphore()
{
    const int id = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    union {
        int val;
        void* pointer;
    } one{.val = 1};
    EQUAL(semctl(id, 0, SETVAL, one), 0);
    const pid_t child = fork();
    if (child == 0) {
        sembuf take{0, -1, SEM_UNDO};
        _exit(semop(id, &take, 1) == 0 ? 0 : 1);
    }
    int status = -1;
    EQUAL(waitpid(child, &status, 0), child);
    EQUAL(status, 0);
    EQUAL(semctl(id, 0, GETVAL), 1);
    semctl(id, 0, IPC_RMID);
}

// The numbers whose texts stand in console lines that people and scripts compare.
void error_texts_are_the_usual_ones()
{
    const struct {
        int number;
        const char* text;
    } cases[] = {
        {EPERM, "Operation not permitted"},
        {ENOENT, "No such file or directory"},
        {EIO, "Input/output error"},
        {EBADF, "Bad file descriptor"},
        {EACCES, "Permission denied"},
        {EBUSY, "Device or resource busy"},
        {ENODEV, "No such device"},
        {EINVAL, "Invalid argument"},
        {ENOSPC, "No space left on device"},
        {ENOTTY, "Inappropriate ioctl for device"},
        {ETIMEDOUT, "Connection timed out"},
        {ECONNREFUSED, "Connection refused"},
        {EADDRINUSE, "Address already in use"},
        {ENETUNREACH, "Network is unreachable"},
        {EMSGSIZE, "Message too long"},
    };
    for (const auto& c : cases) TEXT(strerror(c.number), c.text);
}

void messages_have_their_formats()
{
    char text[128];
    errno = ENOENT;
    snprintf(text, sizeof text, "%m|%02X%02x|%-8s|%.3s|%5.1f|%lld|%zu|%c", 0xAB, 0xcd, "left", "cut off",
             2.25, -5LL, size_t{7}, 'x');
    TEXT(text, "No such file or directory|ABcd|left    |cut|  2.3|-5|7|x");
    volatile size_t room = 4;
    EQUAL(snprintf(text, room, "%s", "longer"), 6);
    TEXT(text, "lon");
    // A half goes up, where other libraries take the even digit: exact halves must not be compared as text.
    snprintf(text, sizeof text, "%.1f", 2.25);
    TEXT(text, "2.3");
}

} // namespace

int main()
{
    alarm(100); // a wait that never ends must not keep the tests
    const checks::Group groups[] = {
        {"crypt", crypt_makes_traditional_hashes},
        {"putpwent", putpwent_writes_the_lines_that_were_read},
        {"threads", threads_share_once_semaphore_and_condition},
        {"timed waits", waits_end_at_their_time},
        {"detach and cancel", threads_detach_and_cancel},
        {"semaphore undo", a_dead_process_gives_back_its_semaphore},
        {"error texts", error_texts_are_the_usual_ones},
        {"formats", messages_have_their_formats},
    };
    return checks::run(groups);
}
