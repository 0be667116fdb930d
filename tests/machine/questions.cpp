// Puts the same questions to a driver wherever it runs: on the emulated machine the kernel answers, in
// the virtual camera its models. One line a question, so that the two can be compared.
//
//   questions mtd /dev/mtd2 BAD      flash of 512-byte pages; BAD is the number of a bad block
//   questions mtdblock 3             the block device over /dev/mtd3
//   questions watchdog
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/watchdog.h>
#include <mtd/mtd-user.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

using Bytes = std::string;

// What the drivers' answers are called; not every C library knows the names.
const char* name_of(int error)
{
    static const std::pair<int, const char*> names[] = {
        {EPERM, "EPERM"},   {ENOENT, "ENOENT"},   {EIO, "EIO"},         {ENXIO, "ENXIO"},
        {EBADF, "EBADF"},   {EAGAIN, "EAGAIN"},   {ENOMEM, "ENOMEM"},   {EACCES, "EACCES"},
        {EFAULT, "EFAULT"}, {EBUSY, "EBUSY"},     {ENODEV, "ENODEV"},   {EINVAL, "EINVAL"},
        {ENOTTY, "ENOTTY"}, {EFBIG, "EFBIG"},     {ENOSPC, "ENOSPC"},   {ESPIPE, "ESPIPE"},
        {EROFS, "EROFS"},   {EUCLEAN, "EUCLEAN"}, {EBADMSG, "EBADMSG"}, {EOPNOTSUPP, "EOPNOTSUPP"},
    };
    for (const auto& [number, name] : names)
        if (number == error) return name;
    return strerror(error);
}

void tell(const std::string& question, int64_t answer)
{
    const int e = errno;
    printf("%s: %lld%s%s\n", question.c_str(), static_cast<long long>(answer), answer < 0 ? " " : "",
           answer < 0 ? name_of(e) : "");
}

// What a stretch holds: the byte that fills it, or how many differ from the first.
void tell_bytes(const std::string& question, const Bytes& bytes)
{
    size_t others = 0;
    for (char c : bytes) others += c != bytes[0];
    printf("%s: %zu bytes 0x%02x, %zu others\n", question.c_str(), bytes.size(),
           bytes.empty() ? 0 : unsigned(uint8_t(bytes[0])), others);
}

int open_device(const char* path, int flags)
{
    const int fd = open(path, flags, 0666);
    if (fd >= 0) return fd;
    printf("%s: %s\n", path, name_of(errno));
    exit(1);
}

class Flash {
public:
    Flash(const char* path, uint32_t bad)
        : path_(path), fd_(open_device(path, O_RDWR)), reader_(open_device(path, O_RDONLY))
    {
        ioctl(fd_, MEMGETINFO, &info_);
        bad_ = bad * info_.erasesize;
    }

    void ask()
    {
        geometry();
        positions();
        bad_blocks();
        erasing();
        writing();
        bad_writing();
        requests();
    }

private:
    int erase(uint32_t start, uint32_t length, int fd = -1)
    {
        erase_info_user range = {start, length};
        return ioctl(fd < 0 ? fd_ : fd, MEMERASE, &range);
    }
    ssize_t put(uint32_t offset, size_t size, char byte)
    {
        const Bytes bytes(size, byte);
        return pwrite(fd_, bytes.data(), size, offset);
    }
    void tell_page(const std::string& question, uint32_t offset)
    {
        Bytes page(512, '\x77');
        const ssize_t n = pread(fd_, page.data(), page.size(), offset);
        if (n < 0) return tell(question, n);
        tell_bytes(question, page.substr(0, size_t(n)));
    }

    void geometry()
    {
        printf("type %u flags %#x size %u erasesize %u writesize %u oobsize %u\n", info_.type, info_.flags,
               info_.size, info_.erasesize, info_.writesize, info_.oobsize);
        const int fd = open(path_, O_RDWR | O_CREAT | O_TRUNC | O_APPEND, 0666);
        tell("opened as a file to be made", fd >= 0 ? 0 : -1);
        tell("closed", close(fd));
    }

    void positions()
    {
        const off_t size = info_.size;
        tell("seek to the end", lseek(fd_, 0, SEEK_END));
        tell("seek past the end", lseek(fd_, size + 1, SEEK_SET));
        tell("seek before the start", lseek(fd_, -1, SEEK_SET));
        tell("seek from the end", lseek(fd_, -2, SEEK_END));
        tell("position", lseek(fd_, 0, SEEK_CUR));
        Bytes to(1024, 0);
        tell("read across the end", read(fd_, to.data(), 100));
        tell("read at the end", read(fd_, to.data(), 100));
        tell("position", lseek(fd_, 0, SEEK_CUR));
        tell("pread past the end", pread(fd_, to.data(), 100, size + 512));
        tell("pread before the start", pread(fd_, to.data(), 100, -512));
        tell("read of part of a page", pread(fd_, to.data(), 100, 13));
        tell("read of nothing", pread(fd_, to.data(), 0, 0));
    }

    void bad_blocks()
    {
        for (int64_t at : {int64_t(0), int64_t(bad_), int64_t(bad_) + 1, int64_t(info_.size) - 1,
                           int64_t(info_.size), int64_t(info_.size) + 1, int64_t(-1)}) {
            __kernel_loff_t offset = at;
            tell("bad block at " + std::to_string(at), ioctl(fd_, MEMGETBADBLOCK, &offset));
            offset = at;
            tell("the same asked of a reader", ioctl(reader_, MEMGETBADBLOCK, &offset));
        }
    }

    void erasing()
    {
        const uint32_t block = info_.erasesize, size = info_.size;
        const struct {
            const char* what;
            uint32_t start, length;
        } ranges[] = {{"a block", 0, block},
                      {"two blocks", block, 2 * block},
                      {"nothing", 0, 0},
                      {"nothing at the end", size, 0},
                      {"from inside a block", 512, block},
                      {"part of a block", 0, 512},
                      {"past the end", size, block},
                      {"across the end", size - block, 2 * block},
                      {"the bad block", bad_, block},
                      {"everything around", 0, 0xFFFFC000}};
        for (const auto& r : ranges) {
            tell(std::string("erase ") + r.what, erase(r.start, r.length));
            erase_info_user64 wide = {r.start, r.length};
            tell("the same in 64 bits", ioctl(fd_, MEMERASE64, &wide));
        }
        tell("erase by a reader", erase(0, block, reader_));
        tell_page("an erased page", 0);

        const uint32_t before = bad_ - block, after = bad_ + block;
        erase(before, block);
        erase(after, block);
        put(before, 512, 'a');
        put(after, 512, 'a');
        tell("erase over the bad block", erase(before, 3 * block));
        tell_page("the block before", before);
        tell_page("the block behind", after);
    }

    void writing()
    {
        const uint32_t size = info_.size, block = info_.erasesize, last = size - block;
        erase(0, block);
        erase(last, block);
        tell("write of part of a page", put(0, 100, 'b'));
        tell("write from inside a page", put(256, 512, 'b'));
        tell("write of a page and a part", put(0, 612, 'b'));
        tell_page("what that left", 0);
        tell("write of nothing", put(0, 0, 'b'));
        tell("write of nothing at the end", put(size, 0, 'b'));
        tell("write at the end", put(size, 512, 'b'));
        tell("write of part of a page at the end", put(size, 100, 'b'));
        tell("write past the end", put(size + 512, 512, 'b'));
        tell("write across the end", put(size - 512, 1024, 'b'));
        tell_page("the last page", size - 512);
        tell("write before the start", pwrite(fd_, "", 1, -512));
        tell("write by a reader", pwrite(reader_, "", 1, 0));
        tell("write of two pages", put(0, 1024, '\xF0'));
        tell_page("the second of them", 512);
        tell("write over what is written", put(0, 512, '\x0F'));
        tell_page("what that left", 0);
        tell("write of a page and more than a block", put(512, block, '\xFF'));
        moving();
    }

    // Where the position stands after writes that succeed and fail.
    void moving()
    {
        erase(0, info_.erasesize);
        const Bytes page(512, 'c');
        lseek(fd_, 0, SEEK_SET);
        tell("write", write(fd_, page.data(), page.size()));
        tell("position", lseek(fd_, 0, SEEK_CUR));
        tell("write of part of a page", write(fd_, page.data(), 100));
        tell("position", lseek(fd_, 0, SEEK_CUR));
        tell("write of another page", write(fd_, page.data(), page.size()));
        tell("position", lseek(fd_, 0, SEEK_CUR));
    }

    void bad_writing()
    {
        const uint32_t block = info_.erasesize;
        tell_page("a page of the bad block", bad_);
        tell("write to the bad block", put(bad_, 512, 'd'));
        tell_page("what that left", bad_);
        erase(bad_ - block, block);
        tell("write into the bad block", put(bad_ - 512, 1024, 'e'));
        tell_page("the page before it", bad_ - 512);
        tell_page("its own first page", bad_);
        tell("erase the bad block", erase(bad_, block));
        tell_page("what that left", bad_);
        __kernel_loff_t offset = info_.size - block;
        tell("mark the last block bad", ioctl(fd_, MEMSETBADBLOCK, &offset));
        tell("ask for it", ioctl(fd_, MEMGETBADBLOCK, &offset));
        tell("erase it", erase(uint32_t(offset), block));
        tell("mark by a reader", ioctl(reader_, MEMSETBADBLOCK, &offset));
    }

    void requests()
    {
        char record[256] = {};
        tell("information nowhere", ioctl(fd_, MEMGETINFO, nullptr));
        tell("erase of nowhere", ioctl(fd_, MEMERASE, nullptr));
        tell("bad block of nowhere", ioctl(fd_, MEMGETBADBLOCK, nullptr));
        tell("a request of terminals", ioctl(fd_, 0x5401, record));
        tell("a request of block devices", ioctl(fd_, BLKGETSIZE64, record));
        tell("a request that is none", ioctl(fd_, _IO('M', 99), record));
        tell("close", close(reader_));
    }

    const char* path_;
    int fd_, reader_;
    mtd_info_user info_ = {};
    uint32_t bad_ = 0;
};

void ask_block_device(const std::string& number)
{
    const std::string block = "/dev/mtdblock" + number, flash = "/dev/mtd" + number;
    const int fd = open_device(block.c_str(), O_RDWR);
    const off_t size = lseek(fd, 0, SEEK_END);
    tell("size", size);
    tell("seek past the end", lseek(fd, size + 1, SEEK_SET));
    char record[256] = {};
    Bytes bytes(512, 'f');
    const int under = open_device(flash.c_str(), O_RDWR);
    for (uint32_t start : {0u, uint32_t(size) - 0x4000}) {
        erase_info_user range = {start, 0x4000};
        tell("erase of the flash under it", ioctl(under, MEMERASE, &range));
    }
    tell("read at the end", pread(fd, record, 100, size));
    tell("read across the end", pread(fd, record, 100, size - 10));
    tell("read past the end", pread(fd, record, 100, size + 512));
    tell("write of ten bytes", pwrite(fd, bytes.data(), 10, 100));
    tell("write over them", pwrite(fd, "gg", 2, 105));
    tell("write at the end", pwrite(fd, bytes.data(), 10, size));
    tell("write across the end", pwrite(fd, bytes.data(), 10, size - 4));
    tell("flash information", ioctl(fd, MEMGETINFO, record));
    tell("a request that is none", ioctl(fd, _IO('M', 99), record));
    tell("flush", fsync(fd));
    tell("close", close(fd));
    tell("read of the flash under it", pread(under, record, 12, 99));
    const Bytes want = Bytes("\xFF"
                             "fffff"
                             "gg"
                             "fff"
                             "\xFF",
                             12);
    tell("holds what was written", Bytes(record, 12) == want);
    tell("read of its end", pread(under, record, 4, size - 4));
    tell("holds what was written", Bytes(record, 4) == "ffff");
}

int timeout_of(int fd)
{
    int value = -1;
    return ioctl(fd, WDIOC_GETTIMEOUT, &value) == 0 ? value : -1;
}

void ask_watchdog()
{
    int fd = open_device("/dev/watchdog", O_WRONLY);
    tell("a second opening", open("/dev/watchdog", O_WRONLY));
    for (int wanted : {15, 1, 60, 0, -5, 100000}) {
        int value = wanted;
        tell("time-out " + std::to_string(wanted), ioctl(fd, WDIOC_SETTIMEOUT, &value));
        printf("said %d, kept %d\n", value, timeout_of(fd));
    }
    char record[256] = {};
    watchdog_info info = {};
    tell("support", ioctl(fd, WDIOC_GETSUPPORT, &info));
    tell("options", info.options);
    tell("status", ioctl(fd, WDIOC_GETSTATUS, record)); // what it holds is each driver's own
    tell("boot status", ioctl(fd, WDIOC_GETBOOTSTATUS, record));
    tell("keep alive", ioctl(fd, WDIOC_KEEPALIVE, nullptr));
    tell("temperature", ioctl(fd, WDIOC_GETTEMP, record));
    tell("a request that is none", ioctl(fd, _IO('W', 99), record));
    tell("a request of terminals", ioctl(fd, 0x5401, record));
    tell("time-out of nowhere", ioctl(fd, WDIOC_SETTIMEOUT, nullptr));
    tell("support nowhere", ioctl(fd, WDIOC_GETSUPPORT, nullptr));
    tell("seek", lseek(fd, 0, SEEK_SET));
    tell("write of nothing", write(fd, "", 0));
    tell("write of a byte", write(fd, "", 1));
    tell("write of many", write(fd, record, sizeof record));
    tell("write at a place", pwrite(fd, "", 1, 5));
    tell("write of the magic", write(fd, "V", 1));
    tell("close", close(fd));
    fd = open_device("/dev/watchdog", O_RDWR);
    tell("read", read(fd, record, 1));
    tell("read at a place", pread(fd, record, 1, 0));
    tell("write of the magic", write(fd, "xVx", 3));
    tell("close", close(fd));
    tell("opened again", open("/dev/watchdog", O_RDONLY) >= 0 ? 0 : -1);
}

} // namespace

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "mtd" && argc == 4)
        Flash(argv[2], uint32_t(atoi(argv[3]))).ask();
    else if (what == "mtdblock" && argc == 3)
        ask_block_device(argv[2]);
    else if (what == "watchdog" && argc == 2)
        ask_watchdog();
    else
        return fputs("usage: questions mtd DEVICE BAD | mtdblock NUMBER | watchdog\n", stderr), 2;
}
