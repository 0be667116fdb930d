// Client of the configuration daemon.
#include "common/cconfd.h"
#include "common/conf/cconfd_frame.hpp"
#include "common/base/monotonic.hpp"
#include "common/qrn_socket.h"
#include "common/net/qrn_uds.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace {

using namespace zep;

constexpr int kLimit = 3;
constexpr int kPause = 5;

bool failed(int error)
{
    errno = error;
    return false;
}

int64_t end_of_answer(const CCONFD_CLIENT_S& client)
{
    return monotonic_ms() + int64_t(std::max(client.limit_s, 1)) * 1000;
}

void hang_up(CCONFD_CLIENT_S& client)
{
    int saved = errno;
    if (client.fd >= 0) close(client.fd);
    client.fd = -1;
    errno = saved;
}

void start_pause(CCONFD_CLIENT_S& client)
{
    client.retry_ms = monotonic_ms() + int64_t(std::max(client.pause_s, 0)) * 1000;
}

// After what a new attempt would not mend at once.
int32_t give_up(CCONFD_CLIENT_S& client)
{
    hang_up(client);
    start_pause(client);
    return CCONFD_NO_ANSWER;
}

void add_notice(CCONFD_CLIENT_S& client, const char* key)
{
    if (client.pending == CCONFD_PENDING) {
        client.pending = 0;
        key = ""; // more than can be kept: anything may have changed
    }
    strcpy(client.notice[client.pending++], key);
}

bool receive_notice(CCONFD_CLIENT_S& client, const ConfdStream& stream, uint32_t length)
{
    char key[CCONFD_KEY_SIZE];
    if (length >= sizeof key) return failed(EPROTO);
    if (!stream.receive(key, length)) return false;
    if (!confd_is_text(key, length)) return failed(EPROTO);
    key[length] = '\0';
    add_notice(client, key);
    return true;
}

// Sends a request and receives up to its reply, notices that stand before it too.
bool exchange(CCONFD_CLIENT_S& client, const ConfdRequest& request, ConfdAnswer& answer, int64_t end_ms)
{
    const ConfdStream stream(client.fd, end_ms);
    if (!stream.send(request.frame, request.length)) return false;
    for (;;) {
        ConfdHeader header;
        if (!confd_receive(stream, header)) return false;
        if (header.command == (request.command | CCONFD_REPLY))
            return confd_receive_reply(stream, header.length, answer);
        if (header.command != CCONFD_COMMAND_NOTICE) return failed(EPROTO);
        if (!receive_notice(client, stream, header.length)) return false;
    }
}

bool join(CCONFD_CLIENT_S& client, int64_t end_ms)
{
    if (!client.path[0]) return failed(ENAMETOOLONG);
    int64_t left = std::max<int64_t>(end_ms - monotonic_ms(), 1);
    client.fd = connect_unix(client.path, int((left + 999) / 1000));
    if (client.fd < 0) return false;
    if (QRN_SetNonBlocking(client.fd) < 0) return false;
    if (!client.watching) return true;

    ConfdRequest watch;
    ConfdAnswer answer;
    watch.make(CCONFD_COMMAND_WATCH, client.watched);
    if (!exchange(client, watch, answer, end_ms)) return false;
    client.watching = answer.result == 0 ? 1 : answer.result;
    if (client.watching > 0) add_notice(client, ""); // none could come while there was no connection
    return true;
}

// A daemon that has ended since the last request: what it sent before is covered by the notice that a new
// connection puts in.
bool peer_is_gone(int fd)
{
    pollfd peer = {fd, POLLRDHUP, 0};
    return poll(&peer, 1, 0) > 0;
}

int32_t perform(CCONFD_CLIENT_S& client, const ConfdRequest& request, ConfdAnswer answer = {})
{
    if (client.fd < 0 && monotonic_ms() < client.retry_ms) {
        errno = EAGAIN;
        return CCONFD_NO_ANSWER;
    }
    const int64_t end_ms = end_of_answer(client);
    // A daemon that was restarted is noticed only here, so one new connection is worth its while.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (client.fd >= 0 && peer_is_gone(client.fd)) {
            hang_up(client);
            continue;
        }
        if (client.fd < 0 && !join(client, end_ms)) break;
        if (exchange(client, request, answer, end_ms)) return answer.result;
        hang_up(client);
        if (errno != EPIPE) break;
    }
    return give_up(client);
}

int32_t request(CCONFD_CLIENT_S* client, CCONFD_COMMAND command, const char* key, const char* value = nullptr)
{
    ConfdRequest made;
    if (!client || !made.make(command, key, value)) return CCONFD_REFUSED;
    return perform(*client, made);
}

bool take_notice(CCONFD_CLIENT_S& client, char* key)
{
    if (client.pending == 0) return false;
    strcpy(key, client.notice[0]);
    --client.pending;
    memmove(client.notice[0], client.notice[1], size_t(client.pending) * sizeof client.notice[0]);
    return true;
}

// Waits for the descriptor, or just waits without one. Signals do not matter. True when it is ready.
bool wait_until(int fd, int64_t end_ms)
{
    for (;;) {
        int64_t left = std::clamp<int64_t>(end_ms - monotonic_ms(), 0, 1'000'000'000);
        pollfd ready = {fd, POLLIN, 0};
        int result = poll(&ready, 1, int(left));
        if (result > 0) return true;
        if (result == 0 && left < 1'000'000'000) return false;
    }
}

// True when the client is connected; else it has waited as long as it may and the pause asks.
bool connected_by(CCONFD_CLIENT_S& client, int64_t end_ms)
{
    if (client.fd >= 0) return true;
    wait_until(-1, std::min(end_ms, client.retry_ms));
    if (monotonic_ms() < client.retry_ms) return failed(EAGAIN);
    if (join(client, end_of_answer(client))) return true;
    give_up(client);
    return false;
}

bool receive_frame(CCONFD_CLIENT_S& client)
{
    const ConfdStream stream(client.fd, end_of_answer(client));
    ConfdHeader header;
    if (!confd_receive(stream, header)) return false;
    if (header.command != CCONFD_COMMAND_NOTICE) return failed(EPROTO);
    return receive_notice(client, stream, header.length);
}

} // namespace

int32_t CCONFD_Init(CCONFD_CLIENT_S* client, const char* path)
{
    if (!client) return CCONFD_REFUSED;
    *client = {};
    client->fd = -1;
    client->limit_s = kLimit;
    client->pause_s = kPause;
    if (!path) path = CCONFD_PATH;
    if (strlen(path) >= sizeof client->path) return CCONFD_REFUSED;
    strcpy(client->path, path);
    return 0;
}

void CCONFD_Close(CCONFD_CLIENT_S* client)
{
    if (!client) return;
    hang_up(*client);
    client->watching = 0;
    client->pending = 0;
    client->retry_ms = 0;
}

int32_t CCONFD_Get(CCONFD_CLIENT_S* client, const char* key, char* value, int32_t size)
{
    ConfdRequest made;
    if (!client || !value || size < 1 || !made.make(CCONFD_COMMAND_GET, key)) return CCONFD_REFUSED;
    return perform(*client, made, {.value = value, .room = size_t(size)});
}

int32_t CCONFD_Set(CCONFD_CLIENT_S* client, const char* key, const char* value)
{
    if (!value) return CCONFD_REFUSED;
    return request(client, CCONFD_COMMAND_SET, key, value);
}

int32_t CCONFD_Changed(CCONFD_CLIENT_S* client, const char* key)
{
    return request(client, CCONFD_COMMAND_CHANGED, key);
}

int32_t CCONFD_Watch(CCONFD_CLIENT_S* client, const char* start)
{
    ConfdRequest made;
    if (!client || !made.make(CCONFD_COMMAND_WATCH, start)) return CCONFD_REFUSED;
    client->watching = 0;
    int32_t result = perform(*client, made);
    if (result != 0 && result != CCONFD_NO_ANSWER) return result;
    client->watching = 1; // a daemon that is not there yet will be asked when it is
    strcpy(client->watched, start);
    return result;
}

int32_t CCONFD_NextNotice(CCONFD_CLIENT_S* client, char* key, int32_t timeout_ms)
{
    if (!client || !key || !client->watching) return CCONFD_REFUSED;
    const int64_t end_ms = monotonic_ms() + std::max(timeout_ms, 0);
    for (bool lost = false;;) {
        if (take_notice(*client, key)) return 1;
        if (client->watching < 0) return client->watching; // a restarted daemon has refused
        if (!connected_by(*client, end_ms)) return CCONFD_NO_ANSWER;
        // Each new connection brings a notice: a daemon that closes each connection after it would keep the
        // caller busy without a pause.
        if (lost) start_pause(*client);
        lost = false;
        if (client->pending > 0 || client->watching < 0) continue;
        if (!wait_until(client->fd, end_ms)) return 0;
        if (receive_frame(*client)) continue;
        hang_up(*client);
        if (errno != EPIPE) return give_up(*client);
        lost = true;
    }
}
