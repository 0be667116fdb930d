/* One use of each call that has several names. It is compiled once for each set of flags that makes the
 * C library choose other names: large files, 64-bit time, checked buffers. */
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#define CHECK(condition)                                                                                     \
    if (!(condition)) return __LINE__

/* The compiler must not see sizes, or a checked call becomes the plain one. */
static volatile size_t four = 4;
static volatile int flags = O_RDWR;

static int files(void)
{
    char data[8] = "abcd";
    struct mtd_info_user info;
    int fd = open("/dev/mtd1", flags), second;
    CHECK(fd >= 0);
    CHECK(ioctl(fd, MEMGETINFO, &info) == 0 && info.erasesize == 65536);
    CHECK(write(fd, data, four) == 4);
    CHECK(pwrite(fd, data, four, 8) == 4);
    CHECK(lseek(fd, 0, SEEK_CUR) == 4);
    CHECK(lseek(fd, 300000, SEEK_SET) == -1); /* a plain file would go there */
    CHECK(lseek(fd, 0, SEEK_SET) == 0);
    CHECK(read(fd, data, four) == 4 && memcmp(data, "abcd", 4) == 0);
    CHECK(pread(fd, data, four, 8) == 4 && memcmp(data, "abcd", 4) == 0);
    second = fcntl(fd, F_DUPFD, 10);
    CHECK(second >= 10 && ioctl(second, MEMGETINFO, &info) == 0);
    CHECK(dup2(fd, 20) == 20 && close(fd) == 0 && ioctl(20, MEMGETINFO, &info) == 0);
    CHECK(close(second) == 0 && close(20) == 0);
    fd = openat(AT_FDCWD, "/dev/mtd1", flags);
    CHECK(fd >= 0 && ioctl(fd, MEMGETINFO, &info) == 0 && close(fd) == 0);
    fd = creat("/dev/mtd1", 0666); /* a device is not truncated */
    CHECK(fd >= 0 && lseek(fd, 0, SEEK_END) == 262144 && close(fd) == 0);
    return 0;
}

static double now(clockid_t id)
{
    struct timespec t;
    return clock_gettime(id, &t) == 0 ? (double)t.tv_sec + (double)t.tv_nsec / 1e9 : -1;
}

static int waits(void)
{
    static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    const struct timespec hour = {3600, 0};
    struct timeval limit = {3600, 0}, day = {86400, 0};
    struct timespec until;
    struct pollfd none[4] = {{-1, 0, 0}, {-1, 0, 0}, {-1, 0, 0}, {-1, 0, 0}};
    double start = now(CLOCK_MONOTONIC);
    CHECK(settimeofday(&day, NULL) == 0 && time(NULL) == 86400);
    CHECK(gettimeofday(&day, NULL) == 0 && day.tv_sec == 86400);
    CHECK(nanosleep(&hour, NULL) == 0 && clock_nanosleep(CLOCK_MONOTONIC, 0, &hour, NULL) == 0);
    CHECK(select(0, NULL, NULL, NULL, &limit) == 0 && pselect(0, NULL, NULL, NULL, &hour, NULL) == 0);
    CHECK(poll(none, four, 3600000) == 0 && ppoll(none, four, &hour, NULL) == 0);
    CHECK(timespec_get(&until, TIME_UTC) == TIME_UTC);
    until.tv_sec += 3600;
    pthread_mutex_lock(&lock);
    while (pthread_cond_timedwait(&condition, &lock, &until) == 0) {
    }
    pthread_mutex_unlock(&lock);
    CHECK(now(CLOCK_REALTIME) > 86400 + 7 * 3600 - 1 && now(CLOCK_REALTIME) < 86400 + 7 * 3600 + 60);
    CHECK(clock_settime(CLOCK_REALTIME, &hour) == 0 && time(NULL) == 3600);
    start = now(CLOCK_MONOTONIC) - start;
    CHECK(start > 7 * 3600 - 1 && start < 7 * 3600 + 60);
    return 0;
}

/* 0, or the line that went past the simulated drivers. */
int SPELLING(void)
{
    int line = files();
    return line ? line : waits();
}
