// What drivers map into a program: a block of the memory zones, and the page of a register.
//   block SIZE          allocates and maps one, writes at its end, shows the bytes at its physical address, gives it back
//   register ADDRESS WORD   writes the word through the address that the driver gives
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace {

constexpr unsigned long kAllocate = 0xC04C6D0A, kFree = 0x404C6D0C, kMap = 0xC04C6D14, kUnmap = 0xC04C6D16,
                        kRegister = 0xC004590A;
constexpr uint32_t kPage = 4096;

int ask(int fd, unsigned long request, void* record, const char* name)
{
    errno = 0;
    const int result = ioctl(fd, request, record);
    printf("%s: %s\n", name, result == 0 ? "done" : strerror(errno));
    return result;
}

char* at(uint32_t address) { return reinterpret_cast<char*>(uintptr_t(address)); }

int block(uint32_t size)
{
    std::array<uint32_t, 19> record = {};
    record[2] = size;
    const int fd = open("/dev/mmz_userdev", O_RDWR);
    if (ask(fd, kAllocate, record.data(), "allocate") != 0 || ask(fd, kMap, record.data(), "map") != 0)
        return 1;
    const uint32_t address = record[4];
    if (ask(fd, kMap, record.data(), "map again") != 0 || record[4] != address) return 1;
    strcpy(at(address) + size - 8, "the end");
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    const uint32_t whole = (size + kPage - 1) / kPage * kPage;
    void* const seen = mmap(nullptr, whole, PROT_READ, MAP_SHARED, memory, off_t(record[0]));
    if (seen == MAP_FAILED) return perror("/dev/mem"), 1;
    printf("physical memory: %s\n", static_cast<char*>(seen) + size - 8);
    ask(fd, kFree, record.data(), "free while mapped");
    ask(fd, kUnmap, record.data(), "unmap");
    printf("mapped still: %s\n", msync(at(address), kPage, MS_ASYNC) == 0 ? "yes" : "no");
    return ask(fd, kFree, record.data(), "free");
}

int write_register(uint32_t address, uint32_t word)
{
    uint32_t where = address;
    const int fd = open("/dev/sys", O_RDWR);
    if (ask(fd, kRegister, &where, "register") != 0) return 1;
    *reinterpret_cast<volatile uint32_t*>(at(where)) = word;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string action = argc > 1 ? argv[1] : "";
    if (action == "block" && argc == 3) return block(uint32_t(strtoul(argv[2], nullptr, 0)));
    if (action == "register" && argc == 4)
        return write_register(uint32_t(strtoul(argv[2], nullptr, 0)), uint32_t(strtoul(argv[3], nullptr, 0)));
    return 2;
}
