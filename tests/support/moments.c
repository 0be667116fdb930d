/* Preloaded under a program of the camera, in front of the simulated drivers: counts the program's calls into the
 * C library that change or wait for something, and raises a signal before one of them.
 *   MOMENT=N SIGNAL=S    the process gets signal S before its Nth call
 *   FSYNC_SECONDS=N      fsync takes so long
 *   SENDTO_ERRNO=N       sendto fails
 * Programs that this one starts are left alone. */
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>

/* Arguments and results of all of them fit into words, which the ABI passes on as they are; the header with the
 * true declarations stays out. */
typedef long Call(long, long, long, long, long, long);
unsigned sleep(unsigned seconds);
int getpid(void);
long syscall(long number, ...);

#ifdef __x86_64__
enum { KILL = 62 };
#else
enum { KILL = 37 }; /* i386 and ARM */
#endif

static long moment, signal_number, fsync_seconds, sendto_errno, calls;

static long take(const char* name)
{
    const char* text = getenv(name);
    const long value = text ? atol(text) : 0;
    unsetenv(name);
    return value;
}

__attribute__((constructor)) static void load_plan(void)
{
    moment = take("MOMENT");
    signal_number = take("SIGNAL");
    fsync_seconds = take("FSYNC_SECONDS");
    sendto_errno = take("SENDTO_ERRNO");
}

static void count(void)
{
    const int e = errno;
    if (++calls == moment) syscall(KILL, (long)getpid(), signal_number);
    errno = e;
}

static long fail(long error)
{
    errno = (int)error;
    return -1;
}

#define COUNTED_AS(name, before)                                                                             \
    long name(long a, long b, long c, long d, long e, long f)                                                \
    {                                                                                                        \
        static Call* next;                                                                                   \
        if (!next) next = (Call*)dlsym(RTLD_NEXT, #name);                                                    \
        count();                                                                                             \
        before;                                                                                              \
        return next(a, b, c, d, e, f);                                                                       \
    }
#define COUNTED(name) COUNTED_AS(name, )

COUNTED(open)
COUNTED(open64)
COUNTED(ioctl)
COUNTED(fcntl)
COUNTED(fcntl64)
COUNTED(read)
COUNTED(write)
COUNTED(poll)
COUNTED(nanosleep)
COUNTED(__nanosleep64)
COUNTED(tcgetattr)
COUNTED(tcsetattr)
COUNTED(tcdrain)
COUNTED(tcflush)
COUNTED(ftruncate)
COUNTED(ftruncate64)
COUNTED(unlink)
COUNTED(posix_fadvise)
COUNTED(posix_fadvise64)
COUNTED_AS(fsync, if (fsync_seconds) sleep((unsigned)fsync_seconds))
COUNTED_AS(sendto, if (sendto_errno) return fail(sendto_errno))
