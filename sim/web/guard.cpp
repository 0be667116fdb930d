// Who may speak to the page's server.
#include "sim/web/guard.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
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

} // namespace

Guard::Guard(const std::string& host, int port) : token_(random_token())
{
    for (const std::string& name :
         {std::string("127.0.0.1"), std::string("localhost"), std::string("[::1]"), in_url(host)})
        hosts_.push_back(text("%s:%d", name.c_str(), port));
}

bool Guard::host_allowed(const std::string& host) const
{
    return std::find(hosts_.begin(), hosts_.end(), host) != hosts_.end();
}

bool Guard::origin_allowed(const std::string& origin) const
{
    constexpr std::string_view kScheme = "http://";
    return origin.empty() || (starts_with(origin, kScheme) && host_allowed(origin.substr(kScheme.size())));
}

bool Guard::token_right(const std::string& given) const
{
    unsigned char difference = given.size() != token_.size();
    for (size_t i = 0; i < std::min(given.size(), token_.size()); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ token_[i]);
    return difference == 0;
}

} // namespace vcam::web
