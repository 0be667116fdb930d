// What the product needs of a C library and what small ones are known to lack or to do differently.
#include "tests/support/run.hpp"

#include <gtest/gtest.h>

#include <netdb.h>
#include <sys/sem.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

std::string printed_by(void (*body)(FILE*))
{
    FILE* file = tmpfile();
    body(file);
    rewind(file);
    char text[512];
    const size_t length = fread(text, 1, sizeof text, file);
    fclose(file);
    return {text, length};
}

} // namespace

TEST(CLibrary, DottedAddressesAndTheOwnNameNeedNoServer)
{
    for (const char* name : {"127.0.0.1", "192.168.1.10", "localhost"}) {
        const hostent* host = gethostbyname(name);
        ASSERT_NE(host, nullptr) << name;
        ASSERT_EQ(host->h_length, 4);
        in_addr address;
        memcpy(&address, host->h_addr_list[0], 4);
        EXPECT_STREQ(inet_ntoa(address), strcmp(name, "localhost") == 0 ? "127.0.0.1" : name);
    }
}

TEST(CLibrary, SystemVSemaphoresUndoWhatADeadProcessHeld)
{
    const int id = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    union {
        int val;
        void* pointer;
    } one{.val = 1};
    EXPECT_EQ(semctl(id, 0, SETVAL, one), 0);
    EXPECT_EQ(in_child([&] {
                  sembuf take{0, -1, SEM_UNDO};
                  return semop(id, &take, 1) == 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(semctl(id, 0, GETVAL), 1);
    semctl(id, 0, IPC_RMID);
}

// The numbers whose texts stand in console lines that people and scripts compare.
TEST(CLibrary, ErrorTextsAreTheUsualOnes)
{
    const std::pair<int, const char*> cases[] = {
        {ENOENT, "No such file or directory"},
        {EIO, "Input/output error"},
        {EBADF, "Bad file descriptor"},
        {EACCES, "Permission denied"},
        {EBUSY, "Device or resource busy"},
        {ENODEV, "No such device"},
        {EINVAL, "Invalid argument"},
        {ENOTTY, "Inappropriate ioctl for device"},
        {ENOSPC, "No space left on device"},
        {ECONNREFUSED, "Connection refused"},
        {ETIMEDOUT, "Connection timed out"},
        {EADDRINUSE, "Address already in use"},
        {ENETUNREACH, "Network is unreachable"},
        {EPERM, "Operation not permitted"},
    };
    for (const auto& [number, text] : cases) EXPECT_STREQ(strerror(number), text);
}

TEST(CLibrary, PrintsTheFormatsThatMessagesUse)
{
    // No exact half among the numbers: not every library rounds it to the even digit.
    EXPECT_EQ(printed_by([](FILE* f) {
                  errno = ENOENT;
                  fprintf(f, "%m|%02X%02x|%-8s|%.3s|%5.1f|%lld|%zu|%c", 0xAB, 0xcd, "left", "cut off", 2.376,
                          -5LL, size_t{7}, 'x');
              }),
              "No such file or directory|ABcd|left    |cut|  2.4|-5|7|x");
    volatile size_t room = 4;
    char text[8];
    EXPECT_EQ(snprintf(text, room, "%s", "longer"), 6);
    EXPECT_STREQ(text, "lon");
}
