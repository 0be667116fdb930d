// Debug lines to a remote console.
#include "service/cudpdebug.h"

#include <arpa/inet.h>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

static_assert(sizeof(CUDPDEBUG) == (sizeof(void*) == 4 ? 102720 : 102728) &&
              offsetof(CUDPDEBUG, message) == 294 && offsetof(CUDPDEBUG, addr) == 102696);

namespace {

int print_nothing(CUDPDEBUG*, const char*, ...) { return 0; }

template<size_t N> void copy_cut(char (&to)[N], const char* from)
{
    memset(to, 0, N);
    if (from) memcpy(to, from, strnlen(from, N - 1));
}

// Begins the message with the tag; its length. The tag is text: a percent sign in it is no conversion.
int put_tag(CUDPDEBUG* log)
{
    return log->tag[0] ? snprintf(log->message, sizeof log->message, "[%s] ", log->tag) : 0;
}

} // namespace

int CUDPDEBUG_Init(CUDPDEBUG* log, int enable, const char* ip, uint16_t port, const char* tag)
{
    log->Close = CUDPDEBUG_Close;
    log->sock = -1;
    if (enable < 1) {
        log->Printf = print_nothing;
        return 0;
    }
    log->Printf = CUDPDEBUG_Printf;
    copy_cut(log->ip, ip);
    log->port = port;
    copy_cut(log->tag, tag);
    log->addr = {};
    log->addr.sin_family = AF_INET;
    log->addr.sin_port = htons(port);
    log->addr.sin_addr.s_addr = inet_addr(log->ip);
    log->sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (log->sock >= 0) return 0;
    perror("[CUDPDEBUG_Init]");
    return -1;
}

int CUDPDEBUG_Printf(CUDPDEBUG* log, const char* format, ...)
{
    const int tag = put_tag(log);
    va_list args;
    va_start(args, format);
    int length = vsnprintf(log->message + tag, sizeof log->message - size_t(tag), format, args);
    va_end(args);
    if (length < 0 || tag + length == 0) return length;
    const auto* to = reinterpret_cast<const sockaddr*>(&log->addr);
    int sent = int(sendto(log->sock, log->message, strlen(log->message), 0, to, sizeof log->addr));
    if (sent < 0) perror("[CUDPDEBUG_Printf]");
    return sent;
}

int CUDPDEBUG_Close(CUDPDEBUG* log)
{
    if (log->sock <= 0) return log->sock;
    int result = close(log->sock);
    log->sock = -1;
    return result;
}
