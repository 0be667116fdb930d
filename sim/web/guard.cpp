// Who may speak to the page's server.
#include "sim/web/guard.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/random.h>

namespace vcam::web {
namespace {

constexpr size_t kTokenBytes = 16;

std::string random_token()
{
    unsigned char bytes[kTokenBytes];
    if (getrandom(bytes, sizeof bytes, 0) != ssize_t(sizeof bytes))
        fail("no random bytes: %s", strerror(errno));
    std::string out;
    for (const unsigned char byte : bytes) out += text("%02x", byte);
    return out;
}

std::string in_url(const std::string& host)
{
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

// An IPv4 address, or an IPv6 address in brackets.
bool is_literal(const std::string& host)
{
    in6_addr bytes;
    if (inet_pton(AF_INET, host.c_str(), &bytes) == 1) return true;
    return host.size() > 2 && host.front() == '[' && host.back() == ']' &&
           inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &bytes) == 1;
}

} // namespace

bool is_wildcard(const std::string& address) { return address == "0.0.0.0" || address == "::"; }

std::string own_address()
{
    std::string found = "127.0.0.1";
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) < 0) return found;
    for (const ifaddrs* at = list; at; at = at->ifa_next) {
        if (!at->ifa_addr || at->ifa_addr->sa_family != AF_INET || (at->ifa_flags & IFF_LOOPBACK) ||
            !(at->ifa_flags & IFF_UP))
            continue;
        sockaddr_in address;
        memcpy(&address, at->ifa_addr, sizeof address);
        char words[INET_ADDRSTRLEN];
        found = inet_ntop(AF_INET, &address.sin_addr, words, sizeof words);
        break;
    }
    freeifaddrs(list);
    return found;
}

Guard::Guard(const std::string& host, int port) : token_(random_token())
{
    if (is_wildcard(host)) any_ = text(":%d", port);
    for (const std::string& name :
         {std::string("127.0.0.1"), std::string("localhost"), std::string("[::1]"), in_url(host)})
        hosts_.push_back(text("%s:%d", name.c_str(), port));
}

bool Guard::listed(const std::string& host) const
{
    return std::find(hosts_.begin(), hosts_.end(), host) != hosts_.end();
}

bool Guard::host_allowed(const std::string& host) const
{
    if (listed(host)) return true;
    return !any_.empty() && host.ends_with(any_) && is_literal(host.substr(0, host.size() - any_.size()));
}

bool Guard::origin_allowed(const std::string& origin, const std::string& host) const
{
    constexpr std::string_view kScheme = "http://";
    if (origin.empty()) return true;
    if (!starts_with(origin, kScheme)) return false;
    const std::string named = origin.substr(kScheme.size());
    return named == host || listed(named);
}

bool Guard::token_right(const std::string& given) const
{
    unsigned char difference = given.size() != token_.size();
    for (size_t i = 0; i < std::min(given.size(), token_.size()); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ token_[i]);
    return difference == 0;
}

} // namespace vcam::web
