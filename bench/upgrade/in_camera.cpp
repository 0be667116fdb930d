// Runs inside the virtual camera for whole_upgrade.sh. Times are the host's, whose clock does not
// advance through the camera's pauses.
//   measure COMMAND...         runs a command: seconds and peak resident KiB on standard error
//   copy FILE DEVICE SIZE      the plain way: 512 bytes at a time to the device, then both again
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double host_seconds()
{
    timespec now{}; // by the system call itself: the library's answer is camera time
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

int measure(char** command)
{
    double start = host_seconds();
    pid_t child = fork();
    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    rusage use{};
    int status = 0;
    wait4(child, &status, 0, &use);
    fprintf(stderr, "%.3f s %ld KiB\n", host_seconds() - start, use.ru_maxrss);
    return status != 0;
}

int copy(const char* file, const char* device, long size)
{
    char a[512], b[512];
    int from = open(file, O_RDONLY), to = open(device, O_WRONLY), back = open(device, O_RDONLY);
    if (from < 0 || to < 0 || back < 0) return 1;
    for (long left = size; left > 0; left -= 512)
        if (read(from, a, 512) != 512 || write(to, a, 512) != 512) return 2;
    lseek(from, 0, SEEK_SET);
    for (long left = size; left > 0; left -= 512)
        if (read(from, a, 512) != 512 || read(back, b, 512) != 512 || memcmp(a, b, 512) != 0) return 3;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && strcmp(argv[1], "measure") == 0) return measure(argv + 2);
    if (argc > 4 && strcmp(argv[1], "copy") == 0) return copy(argv[2], argv[3], atol(argv[4]));
    return 2;
}
