// test_sdcard, test_usb: writes, reads back and removes a file on a storage medium.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/verdict.hpp"

#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"
#include "common/base/whole_io.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

using zep::BoardGuard;
using zep::Steps;

constexpr size_t kBlock = 64 * 1024;
constexpr size_t kAlign = 4096; // what O_DIRECT wants on every file system in use
constexpr int64_t kMaxMiB = 1024;
// A medium that is slower than this fails, so that no test lasts for ever.
constexpr int64_t kStartMs = 60'000, kMsPerBlock = 250; // 256 KiB/s after the first minute

constexpr char kFileName[] = ".factory_test";

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

// The file of the test. It goes away with the object, and so does what an earlier run had to leave behind, after
// a power cut for example.
class TestFile {
public:
    explicit TestFile(const char* folder) : folder_(folder)
    {
        snprintf(path_, sizeof path_, "%s/%s", folder, kFileName);
        struct sigaction action = {};
        action.sa_handler = SIG_IGN; // a file that may not grow is a write that fails
        sigaction(SIGXFSZ, &action, &before_);
    }
    ~TestFile()
    {
        remove();
        sigaction(SIGXFSZ, &before_, nullptr);
    }
    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;

    // Makes it, empty. False when it cannot be made, or, with `busy`, when another process tests the medium.
    bool create(const char* test, const Steps& steps, bool& busy)
    {
        remove_numbered();
        for (;;) {
            fd_.reset(open(path_, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
            if (!fd_) return refuse(steps, "create");
            busy = !zep::claim_board(fd_.get(), 0, test);
            if (busy) return false;
            if (is_in_folder()) break; // else its owner has just removed it
        }
        created_ = true;
        return ftruncate(fd_.get(), 0) == 0 || refuse(steps, "create");
    }

    // Removes it. False when it stays on the medium, which then is no sound one.
    bool remove()
    {
        if (!created_) return true;
        created_ = false;
        if (unlink(path_) == 0) return true;
        zep::warn("%s stays : %s", path_, strerror(errno));
        return false;
    }

    [[nodiscard]] int fd() const { return fd_.get(); }

    // A descriptor of the object's, -1 with errno. Reads go past the page cache where the file system can; some
    // open a file so and then refuse to read it.
    int open_for_reading()
    {
        reading_.reset(open(path_, O_RDONLY | O_CLOEXEC | O_DIRECT));
        if (!reading_) reading_.reset(open(path_, O_RDONLY | O_CLOEXEC));
        if (reading_ && pread(reading_.get(), buffers.seen, kBlock, 0) < 0)
            fcntl(reading_.get(), F_SETFL, fcntl(reading_.get(), F_GETFL) & ~O_DIRECT);
        return reading_.get();
    }

private:
    [[nodiscard]] bool is_in_folder() const
    {
        struct stat mine;
        struct stat there;
        return fstat(fd_.get(), &mine) == 0 && lstat(path_, &there) == 0 && mine.st_ino == there.st_ino &&
               mine.st_dev == there.st_dev;
    }

    // Former versions put the process number behind the name.
    void remove_numbered() const
    {
        DIR* folder = opendir(folder_);
        if (!folder) return;
        const size_t length = strlen(kFileName);
        while (const dirent* entry = readdir(folder)) {
            const char* rest = entry->d_name + length;
            if (strncmp(entry->d_name, kFileName, length) != 0 || *rest++ != '_') continue;
            if (*rest == '\0' || rest[strspn(rest, "0123456789")] != '\0') continue;
            unlinkat(dirfd(folder), entry->d_name, 0);
        }
        closedir(folder);
    }

    const char* folder_;
    char path_[64];
    zep::Fd fd_; // both stay open until the file is gone: closing one ends the claim
    zep::Fd reading_;
    bool created_ = false;
    struct sigaction before_;
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

bool write_file(const TestFile& file, int64_t bytes, const Steps& steps)
{
    Stopwatch watch;
    Pattern pattern;
    for (int64_t done = 0; done < bytes; done += kBlock) {
        if (BoardGuard::interrupted()) return false;
        pattern.fill(buffers.wanted, kBlock);
        if (!zep::write_fully(file.fd(), buffers.wanted, kBlock)) return refuse(steps, "write");
        if (too_slow("write", watch, done / int64_t(kBlock), steps)) return false;
    }
    // The medium's own time is here: the writes before may have ended in the page cache.
    if (fsync(file.fd()) < 0) return refuse(steps, "sync");
    if (too_slow("write", watch, bytes / int64_t(kBlock), steps)) return false;
    // What stays in the page cache would be compared with itself.
    posix_fadvise(file.fd(), 0, 0, POSIX_FADV_DONTNEED);
    steps.say("WRITE %lld KiB/s\n", static_cast<long long>(bytes / 1024 * 1000 / watch.ms()));
    return true;
}

bool compare_file(TestFile& file, int64_t bytes, const Steps& steps)
{
    Stopwatch watch;
    const int fd = file.open_for_reading(); // reads a block already
    if (fd < 0) return refuse(steps, "open");
    Pattern pattern;
    for (int64_t done = 0; done < bytes; done += kBlock) {
        if (BoardGuard::interrupted()) return false;
        pattern.fill(buffers.wanted, kBlock);
        errno = EIO; // the reason given for a file that ends too early
        if (zep::read_fully(fd, buffers.seen, kBlock) < kBlock) return refuse(steps, "read");
        if (too_slow("read", watch, done / int64_t(kBlock), steps)) return false;
        if (memcmp(buffers.wanted, buffers.seen, kBlock) == 0) continue;
        steps.say("compare : difference in the 64 KiB at %lld : failed\n", static_cast<long long>(done));
        return false;
    }
    steps.say("READ %lld KiB/s\n", static_cast<long long>(bytes / 1024 * 1000 / watch.ms()));
    return true;
}

bool test_medium(const char* folder, int64_t bytes, const char* test, const Steps& steps, bool& busy)
{
    if (!is_mount_point(folder, steps)) return false;
    TestFile file(folder);
    const bool passed = file.create(test, steps, busy) && has_room(folder, bytes, steps) &&
                        write_file(file, bytes, steps) && compare_file(file, bytes, steps);
    return file.remove() && passed;
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
    BoardGuard guard;
    bool busy = false;
    const bool passed = test_medium(folder, mib * 1024 * 1024, argv[0], steps, busy);
    if (busy) guard.give_up();
    return guard.verdict(passed);
}

} // namespace

int test_sdcard_main(int argc, char** argv) { return run(argc, argv, "/mnt/sd"); }
int test_usb_main(int argc, char** argv) { return run(argc, argv, "/mnt/usb"); }
