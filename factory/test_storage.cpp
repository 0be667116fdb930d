// test_sdcard, test_usb: writes, reads back and removes a file on a storage medium.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"
#include "common/base/whole_io.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

using zep::Steps;

constexpr size_t kBlock = 64 * 1024;
constexpr size_t kAlign = 4096; // what O_DIRECT wants on every file system in use
constexpr int64_t kMaxMiB = 1024;
// A medium that is slower than this fails, so that no test lasts for ever.
constexpr int64_t kStartMs = 60'000, kMsPerBlock = 250; // 256 KiB/s after the first minute

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};

// The file under test; a signal handler must know it, so it is the process's.
struct State {
    char path[128] = "";
    volatile sig_atomic_t created = 0; // ours: nobody else's file of that name is touched
};
constinit State state;

void remove_and_end(int signal_number)
{
    if (state.created) unlink(state.path);
    signal(signal_number, SIG_DFL);
    raise(signal_number); // comes when the handler has returned
}

// The file goes away on every path, a termination signal included.
class TestFile {
public:
    explicit TestFile(const char* folder)
    {
        snprintf(state.path, sizeof state.path, "%s/.factory_test_%d", folder, int(getpid()));
        struct sigaction action = {};
        action.sa_handler = remove_and_end;
        for (int s : kEndingSignals) sigaction(s, &action, nullptr);
        signal(SIGXFSZ, SIG_IGN); // a file that may not grow is a write that fails
    }
    ~TestFile()
    {
        if (state.created) unlink(state.path);
        for (int s : kEndingSignals) signal(s, SIG_DFL);
        signal(SIGXFSZ, SIG_DFL);
    }
    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;

    // A signal between the file's making and the note of it would leave the file behind.
    static zep::Fd create()
    {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &before);
        zep::Fd fd(open(state.path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        int e = errno;
        state.created = bool(fd);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        errno = e;
        return fd;
    }
};

// Pseudo-random words (xorshift32, Marsaglia 2003), so that no two blocks are alike.
class Pattern {
public:
    void fill(uint8_t* data, size_t size)
    {
        for (size_t i = 0; i < size; i += 4) {
            word_ ^= word_ << 13;
            word_ ^= word_ >> 17;
            word_ ^= word_ << 5;
            memcpy(data + i, &word_, 4);
        }
    }

private:
    uint32_t word_ = 0x5A4550A5;
};

class Stopwatch {
public:
    [[nodiscard]] int64_t ms() const { return std::max<int64_t>(1, zep::monotonic_ms() - start_ms_); }

private:
    int64_t start_ms_ = zep::monotonic_ms();
};

struct Buffers {
    alignas(kAlign) uint8_t wanted[kBlock];
    alignas(kAlign) uint8_t seen[kBlock];
};
constinit Buffers buffers = {}; // too large for the device's stack

bool refuse(const Steps& steps, const char* what)
{
    steps.say("%s : %s : failed\n", what, strerror(errno));
    return false;
}

// The kernel's list has a line for each mount: what, where, and more.
bool in_mount_list(const char* folder)
{
    FILE* list = fopen("/proc/mounts", "re");
    if (!list) return false;
    char* line = nullptr;
    size_t room = 0;
    bool found = false;
    while (!found && getline(&line, &room, list) > 0) {
        const char* where = strchr(line, ' ');
        size_t length = where ? strcspn(++where, " ") : 0;
        found = length == strlen(folder) && memcmp(where, folder, length) == 0;
    }
    free(line);
    fclose(list);
    return found;
}

bool is_mount_point(const char* folder, const Steps& steps)
{
    if (in_mount_list(folder)) return true;
    steps.say("%s : nothing is mounted : failed\n", folder);
    return false;
}

bool too_slow(const char* what, const Stopwatch& watch, int64_t blocks, const Steps& steps)
{
    if (watch.ms() <= kStartMs + kMsPerBlock * blocks) return false;
    steps.say("%s : too slow : failed\n", what);
    return true;
}

bool has_room(const char* folder, int64_t bytes, const Steps& steps)
{
    struct statvfs fs = {};
    if (statvfs(folder, &fs) < 0) return refuse(steps, folder);
    uint64_t free_bytes = uint64_t(fs.f_bavail) * fs.f_frsize;
    if (free_bytes >= uint64_t(bytes)) return true;
    steps.say("%s : %llu bytes free, %lld needed : failed\n", folder,
              static_cast<unsigned long long>(free_bytes), static_cast<long long>(bytes));
    return false;
}

bool write_file(int64_t bytes, const Steps& steps)
{
    zep::Fd fd = TestFile::create();
    if (!fd) return refuse(steps, "create");
    Stopwatch watch;
    Pattern pattern;
    for (int64_t done = 0; done < bytes; done += kBlock) {
        pattern.fill(buffers.wanted, kBlock);
        if (!zep::write_fully(fd.get(), buffers.wanted, kBlock)) return refuse(steps, "write");
        if (too_slow("write", watch, done / int64_t(kBlock), steps)) return false;
    }
    if (fsync(fd.get()) < 0) return refuse(steps, "sync");
    // What stays in the page cache would be compared with itself.
    posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED);
    steps.say("WRITE %lld KiB/s\n", static_cast<long long>(bytes / 1024 * 1000 / watch.ms()));
    return true;
}

// Past the page cache where the file system can; some open such a file and then refuse to read it.
zep::Fd open_for_reading()
{
    zep::Fd fd(open(state.path, O_RDONLY | O_CLOEXEC | O_DIRECT));
    if (fd && pread(fd.get(), buffers.seen, kBlock, 0) < 0) fd.reset();
    if (!fd) fd.reset(open(state.path, O_RDONLY | O_CLOEXEC));
    return fd;
}

bool compare_file(int64_t bytes, const Steps& steps)
{
    zep::Fd fd = open_for_reading();
    if (!fd) return refuse(steps, "open");
    Stopwatch watch;
    Pattern pattern;
    for (int64_t done = 0; done < bytes; done += kBlock) {
        pattern.fill(buffers.wanted, kBlock);
        errno = EIO; // what a file that ends too early is told as
        if (zep::read_fully(fd.get(), buffers.seen, kBlock) < kBlock) return refuse(steps, "read");
        if (too_slow("read", watch, done / int64_t(kBlock), steps)) return false;
        if (memcmp(buffers.wanted, buffers.seen, kBlock) == 0) continue;
        steps.say("compare : difference in the 64 KiB at %lld : failed\n", static_cast<long long>(done));
        return false;
    }
    steps.say("READ %lld KiB/s\n", static_cast<long long>(bytes / 1024 * 1000 / watch.ms()));
    return true;
}

bool test_medium(const char* folder, int64_t bytes, const Steps& steps)
{
    if (!is_mount_point(folder, steps) || !has_room(folder, bytes, steps)) return false;
    TestFile file(folder);
    return write_file(bytes, steps) && compare_file(bytes, steps);
}

int run(int argc, char** argv, const char* folder)
{
    char usage[160];
    snprintf(usage, sizeof usage,
             "usage: %s [-v] [-m MiB]\n    tests the medium mounted on %s with a file of 4 MiB\n", argv[0],
             folder);
    Steps steps;
    int64_t mib = 4;
    const zep::Option options[] = {{"-v", &steps.verbose}, {"-m", nullptr, &mib, 1, kMaxMiB}};
    if (!zep::parse_options(argc, argv, options, nullptr, 0, usage)) return zep::print_verdict(false);
    return zep::print_verdict(test_medium(folder, mib * 1024 * 1024, steps));
}

} // namespace

int test_sdcard_main(int argc, char** argv) { return run(argc, argv, "/mnt/sd"); }
int test_usb_main(int argc, char** argv) { return run(argc, argv, "/mnt/usb"); }
