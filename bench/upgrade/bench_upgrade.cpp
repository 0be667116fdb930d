// Package checks, CRC-32, flash writing and peak memory, each beside its peer in the same run.
//
// The flash is a plain file in memory here, so what is measured is the product's own work: the
// documented pauses are counted, not slept.
#include "upgrade/cflash.h"
#include "upgrade/crc32.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

static unsigned slept;

// Stands in for the C library's: the pauses before each write and each compare.
extern "C" unsigned sleep(unsigned seconds)
{
    slept += seconds;
    return 0;
}

namespace {

constexpr size_t kMiB = 1 << 20;

void must(bool good, const char* what)
{
    if (good) return;
    perror(what);
    exit(1);
}

double seconds(const std::function<void()>& work)
{
    double best = 1e9;
    for (int round = 0; round < 5; ++round) {
        auto start = std::chrono::steady_clock::now();
        work();
        best =
            std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void row(const char* what, size_t bytes, double ours, const char* peer, double theirs)
{
    printf("%-34s %9.1f MB/s   %-30s %9.1f MB/s   x%.2f\n", what, double(bytes) / ours / 1e6, peer,
           double(bytes) / theirs / 1e6, theirs / ours);
}

class File {
public:
    explicit File(const char* name)
        : fd_(memfd_create(name, 0)), path_("/proc/self/fd/" + std::to_string(fd_))
    {
        must(fd_ >= 0, name);
    }
    ~File() { close(fd_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

void put(int fd, const void* bytes, size_t size) { must(write(fd, bytes, size) == ssize_t(size), "write"); }

void put32(std::string& to, uint32_t v, bool big)
{
    for (int i = 0; i < 4; ++i) to += char(v >> (big ? 24 - 8 * i : 8 * i));
}

// A version 3 package whose kernel is nearly the whole of it.
void make_package(const File& file, size_t kernel_bytes)
{
    std::vector<char> piece(kMiB);
    std::mt19937 random(1);
    for (char& c : piece) c = char(random());
    uint32_t data_crc = 0;
    for (size_t i = 0; i < kernel_bytes; i += piece.size())
        data_crc =
            uint32_t(crc32(data_crc, reinterpret_cast<const Bytef*>(piece.data()), uInt(piece.size())));

    std::string image;
    for (uint32_t v : {zep::kImageMagic, 0u, 0u, uint32_t(kernel_bytes), 0u, 0u, data_crc})
        put32(image, v, true);
    image += std::string{5, 2, 2, 0};
    image.resize(64);
    std::string crc;
    put32(crc, uint32_t(crc32(0, reinterpret_cast<const Bytef*>(image.data()), 64)), true);
    image.replace(4, 4, crc);

    std::string header = "3510";
    for (uint32_t v : {3u, 0u, uint32_t(64 + kernel_bytes), 0u, 0u}) put32(header, v, false);
    header.resize(64);
    put(file.fd(), header.data(), header.size());
    put(file.fd(), image.data(), image.size());
    for (size_t i = 0; i < kernel_bytes; i += piece.size()) put(file.fd(), piece.data(), piece.size());
}

void read_through(int fd, size_t chunk)
{
    std::vector<char> buffer(chunk);
    lseek(fd, 0, SEEK_SET);
    while (read(fd, buffer.data(), chunk) > 0) {
    }
}

void check(int fd)
{
    zep::PackageHeader header;
    lseek(fd, 0, SEEK_SET);
    bool good = !zep::check_header(fd, {zep::marker_word("3510"), 3, ""}, true, header) &&
                !zep::check_contents(fd, header);
    must(good, "the package is refused");
}

void product_copy(const File& package, const File& flash, size_t bytes)
{
    must(CFlash_NWrite(package.path(), flash.path(), 64, uint32_t(bytes)) == 0, "CFlash_NWrite");
    must(CFlash_Confirm(package.path(), flash.path(), 64, uint32_t(bytes)) == 0, "CFlash_Confirm");
}

// What anyone would write: 512 bytes at a time from one descriptor to the other, then both again.
void plain_copy(const File& package, const File& flash, size_t bytes)
{
    char a[512], b[512];
    lseek(package.fd(), 64, SEEK_SET);
    lseek(flash.fd(), 0, SEEK_SET);
    for (size_t left = bytes; left; left -= sizeof a) {
        must(read(package.fd(), a, sizeof a) == sizeof a, "read");
        put(flash.fd(), a, sizeof a);
    }
    lseek(package.fd(), 64, SEEK_SET);
    lseek(flash.fd(), 0, SEEK_SET);
    for (size_t left = bytes; left; left -= sizeof a) {
        must(read(package.fd(), a, sizeof a) == sizeof a && read(flash.fd(), b, sizeof b) == sizeof b,
             "read");
        must(memcmp(a, b, sizeof a) == 0, "compare");
    }
}

void crc_rows()
{
    std::vector<unsigned char> bytes(16 * kMiB);
    std::mt19937 random(2);
    for (auto& c : bytes) c = static_cast<unsigned char>(random());
    uint32_t a = 0, b = 0;
    auto in_chunks = [&](auto update) {
        return seconds([&] {
            for (size_t i = 0; i < bytes.size(); i += 512) update(&bytes[i]);
        });
    };
    double ours = in_chunks([&](const unsigned char* p) { a = zep::crc32_update(a, p, 512); });
    double zlib = in_chunks([&](const unsigned char* p) { b = uint32_t(crc32(b, p, 512)); });
    must(a == b, "CRC-32 differs from zlib's");
    row("CRC-32 in chunks of 512", bytes.size(), ours, "zlib crc32", zlib);
}

void package_rows()
{
    constexpr size_t size = 16 * kMiB;
    File package("package"), flash("flash");
    make_package(package, size);
    double ours = seconds([&] { check(package.fd()); });
    row("package check, 16 MiB", size, ours, "read() the file, 512 a call",
        seconds([&] { read_through(package.fd(), 512); }));
    row("", size, ours, "read() the file, 8 KiB a call", seconds([&] { read_through(package.fd(), 8192); }));
    slept = 0;
    ours = seconds([&] { product_copy(package, flash, size); });
    row("write and compare, 16 MiB", size, ours, "plain copy and compare, 512",
        seconds([&] { plain_copy(package, flash, size); }));
    printf("%-34s %u s of pauses a pass not slept\n", "", slept / 5);
}

void memory_rows()
{
    for (size_t size : {0, 1, 16, 64}) { // the first brings the libraries' pages in
        File package("package"), flash("flash");
        make_package(package, size * kMiB);
        fflush(stdout);
        pid_t child = fork();
        must(child >= 0, "fork");
        if (child == 0) {
            check(package.fd());
            product_copy(package, flash, size * kMiB);
            _exit(0);
        }
        rusage use{};
        int status = 0;
        must(wait4(child, &status, 0, &use) == child && status == 0, "child");
        if (size)
            printf("check, write and compare, %2zu MiB    %6ld KiB peak resident\n", size, use.ru_maxrss);
    }
}

} // namespace

int main()
{
    zep::log_redirect([](const char*) {});
    memory_rows(); // first: a child starts with its parent's memory
    crc_rows();
    package_rows();
}
