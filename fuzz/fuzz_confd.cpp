// What a configuration daemon sends: values and notices are whole, terminated texts or nothing.
#include "common/cconfd.h"
#include "fuzz/fuzz.hpp"

#include <memory>
#include <sys/socket.h>

namespace {

bool is_text(const char* text, size_t size)
{
    size_t length = strnlen(text, size);
    for (size_t i = 0; i < length; ++i)
        if (uint8_t(text[i]) < ' ' || text[i] == '\x7f') return false;
    return length < size;
}

// The daemon has said all this, and is gone.
int connection(const std::string& bytes)
{
    int pair[2];
    must(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) == 0);
    must(bytes.empty() || write(pair[1], bytes.data(), bytes.size()) == ssize_t(bytes.size()));
    shutdown(pair[1], SHUT_WR);
    static int far = -1; // open until the next connection, so that requests have somewhere to go
    close(far);
    far = pair[1];
    return pair[0];
}

} // namespace

void try_bytes(const std::string& bytes)
{
    if (bytes.empty() || bytes.size() > 65536) return;
    const size_t room = uint8_t(bytes[0]) % 65 * 40 + 1;
    auto client = std::make_unique<CCONFD_CLIENT_S>();
    std::unique_ptr<char[]> value(new char[room]), key(new char[CCONFD_KEY_SIZE]);
    CCONFD_Init(client.get(), "");
    client->pause_s = 0;
    client->watching = 1;
    client->fd = connection(bytes.substr(1));
    memset(value.get(), 'x', room);
    for (int round = 0; round < 40 && client->fd >= 0; ++round) {
        if (CCONFD_NextNotice(client.get(), key.get(), 0) == 1)
            must(is_text(key.get(), CCONFD_KEY_SIZE));
        else if (CCONFD_Get(client.get(), "key", value.get(), int32_t(room)) == 0)
            must(is_text(value.get(), room));
        else if (round % 4 == 3)
            CCONFD_Set(client.get(), "key", "value");
    }
    while (client->pending > 0) must(CCONFD_NextNotice(client.get(), key.get(), 0) == 1);
    CCONFD_Close(client.get());
}
