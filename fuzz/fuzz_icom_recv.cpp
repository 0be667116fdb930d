// Local messages off a socket: datagrams of the fuzzer's, one after the other into the same endpoint. A byte
// says how long the next one is.
#include "common/cicomm.h"
#include "fuzz/fuzz_file.hpp"

#include <cstdio>
#include <cstring>
#include <sys/socket.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static CICOMM* endpoint = [] {
        must(freopen("/dev/null", "w", stdout) != nullptr);
        auto* made = static_cast<CICOMM*>(malloc(sizeof(CICOMM)));
        must(CICOMM_Init(made, 0) == 0);
        return made;
    }();
    int ends[2];
    must(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0);
    close(endpoint->fd);
    endpoint->fd = ends[0];
    while (size > 0) {
        size_t length = data[0];
        ++data, --size;
        if (length > size) length = size;
        must(send(ends[1], data, length, 0) == ssize_t(length));
        uint32_t command = 0;
        int32_t got = CICOMM_RecvChecked(endpoint, &command);
        must(got == -1 || (got >= 0 && size_t(got) + CICOMM_HEADER_SIZE <= length));
        must(got == -1 || memcmp(CICOMM_GetRecvData(endpoint), data + CICOMM_HEADER_SIZE, size_t(got)) == 0);
        must(send(ends[1], data, length, 0) == ssize_t(length));
        CICOMM_Recv(endpoint, &command);
        data += length;
        size -= length;
    }
    close(ends[1]);
    CICOMM_Close(endpoint);
    return 0;
}
