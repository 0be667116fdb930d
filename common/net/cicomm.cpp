// Messages between the processes of the device.
#include "common/cicomm.h"
#include "common/net/inet_address.hpp"
#include "common/qrn_udp.h"
#include "common/base/report.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using namespace zep;

constexpr char kMagic[4] = {'I', 'C', 'O', 'M'};
constexpr int kSendLimitS = 3;
constexpr int kNotSent = -4;

// Offsets in the header.
enum Field : size_t { kVersion = 4, kCommand = 8, kPort = 12, kLength = 16, kReserved = 20 };

static_assert(sizeof(void*) != 4 || (offsetof(CICOMM, Close) == 204808 && sizeof(CICOMM) == 204832),
              "the device's other programs share the record");

void put(uint8_t* message, Field field, uint32_t value) { memcpy(message + field, &value, sizeof value); }

uint32_t get(const uint8_t* message, Field field)
{
    uint32_t value;
    memcpy(&value, message + field, sizeof value);
    return value;
}

void build(CICOMM* endpoint, uint32_t command, const void* payload, int32_t length)
{
    uint8_t* message = endpoint->send_message;
    // The payload first: it may already stand in this buffer.
    if (length > 0) memmove(message + CICOMM_HEADER_SIZE, payload, size_t(length));
    memcpy(message, kMagic, sizeof kMagic);
    put(message, kVersion, CICOMM_VERSION);
    put(message, kCommand, command);
    put(message, kPort, endpoint->port);
    put(message, kLength, uint32_t(length));
    memset(message + kReserved, 0, CICOMM_HEADER_SIZE - kReserved);
}

int64_t now_s()
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return now.tv_sec;
}

// Sends the rest as long as some is left. False on an error, which is printed, on a time-out and when
// nothing can be sent.
bool send_all(int fd, const uint8_t* message, size_t size, int port)
{
    const int64_t deadline = now_s() + kSendLimitS;
    const sockaddr_in to = loopback_address(port);
    for (size_t done = 0; done < size && now_s() <= deadline;) {
        ssize_t out = sendto(fd, message + done, size - done, 0, as_sockaddr(to), sizeof to);
        if (out == 0) return false;
        if (out > 0) {
            done += size_t(out);
            if (done == size) return true;
            continue;
        }
        if (errno != EINTR && errno != EAGAIN) {
            printf("[SendTo] Error Number : %d, Error String %s\n", errno, strerror(errno));
            return false;
        }
        usleep(1);
    }
    return false;
}

// Bytes of the next datagram; 0 or less after the function's own message, -1 without one when closed.
int receive(CICOMM* endpoint, const char* function)
{
    if (endpoint->fd < 0) return -1;
    ssize_t got =
        recvfrom(endpoint->fd, endpoint->recv_message, sizeof endpoint->recv_message, 0, nullptr, nullptr);
    if (got <= 0) report_reason(function, "recvfrom");
    return int(got);
}

void store_command(const CICOMM* endpoint, uint32_t* command)
{
    if (command) *command = get(endpoint->recv_message, kCommand);
}

} // namespace

int CICOMM_Init(CICOMM* endpoint, uint32_t port)
{
    endpoint->Close = CICOMM_Close;
    endpoint->GetSocket = CICOMM_GetSocket;
    endpoint->Send = CICOMM_Send;
    endpoint->Recv = CICOMM_Recv;
    endpoint->GetRecvHeader = CICOMM_GetRecvHeader;
    endpoint->GetRecvData = CICOMM_GetRecvData;
    endpoint->fd = -1;
    endpoint->port = port;
    // A first datagram shorter than a header is still read as a header.
    memset(endpoint->recv_message, 0, CICOMM_HEADER_SIZE);

    endpoint->fd = port ? QRN_OpenLocalUDPSSocket(int(port)) : QRN_OpenLocalUDPCSocket();
    if (endpoint->fd >= 0) return 0;
    report_reason(__func__, "QRN_OpenLocalUDPSSocket"); // of a client, too
    endpoint->Close(endpoint);
    return -1;
}

int CICOMM_Send(CICOMM* endpoint, uint32_t command, int port, const void* payload, int32_t length)
{
    if (!payload && length != 0) {
        report_reason(__func__, "size[%d], buff[%x]", length, 0u);
        return -1;
    }
    if (length < 0 || length > CICOMM_PAYLOAD_SIZE) {
        report_reason(__func__, "size over %d vs %d", length, CICOMM_PAYLOAD_SIZE);
        return -2;
    }
    build(endpoint, command, payload, length);
    const int size = CICOMM_HEADER_SIZE + length;
    if (endpoint->fd >= 0 && send_all(endpoint->fd, endpoint->send_message, size_t(size), port)) return size;
    report_reason(__func__, "SendTo %d vs %d", -1, size);
    return kNotSent;
}

int32_t CICOMM_Recv(CICOMM* endpoint, uint32_t* command)
{
    if (receive(endpoint, __func__) <= 0) return -1;
    store_command(endpoint, command);
    return int32_t(get(endpoint->recv_message, kLength));
}

int32_t CICOMM_RecvChecked(CICOMM* endpoint, uint32_t* command)
{
    int received = receive(endpoint, __func__);
    if (received <= 0) return -1;
    int32_t length = CICOMM_CheckMessage(endpoint->recv_message, received);
    if (length < 0) {
        report_reason(__func__, "%d bytes are no message", received);
        return -1;
    }
    store_command(endpoint, command);
    return length;
}

int32_t CICOMM_CheckMessage(const void* message, int32_t received)
{
    const auto* bytes = static_cast<const uint8_t*>(message);
    if (received < CICOMM_HEADER_SIZE || memcmp(bytes, kMagic, sizeof kMagic) != 0) return -1;
    if (get(bytes, kVersion) != CICOMM_VERSION) return -1;
    uint32_t length = get(bytes, kLength);
    if (length > uint32_t(received - CICOMM_HEADER_SIZE)) return -1;
    return int32_t(length);
}

int CICOMM_Close(CICOMM* endpoint)
{
    if (endpoint->fd < 0) return endpoint->fd;
    int result = close(endpoint->fd);
    endpoint->fd = -1;
    return result;
}

int CICOMM_GetSocket(const CICOMM* endpoint) { return endpoint->fd; }

const uint8_t* CICOMM_GetRecvHeader(const CICOMM* endpoint) { return endpoint->recv_message; }

const uint8_t* CICOMM_GetRecvData(const CICOMM* endpoint)
{
    return endpoint->recv_message + CICOMM_HEADER_SIZE;
}
