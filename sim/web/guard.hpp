// Who may speak to the page's server.
#pragma once

#include <string>
#include <vector>

namespace vcam::web {

// A page of another origin, or of a name that somebody has led to this address, must not reach a camera.
class Guard {
public:
    // The address that the server listens on. The token is made here.
    Guard(const std::string& host, int port);
    [[nodiscard]] const std::string& token() const { return token_; }
    // The Host header names this server by its address, or as localhost. A server of all addresses takes every literal
    // address: only names can be led elsewhere.
    [[nodiscard]] bool host_allowed(const std::string& host) const;
    // No Origin header (""), or a page of this server; `host` is the request's, which is allowed.
    [[nodiscard]] bool origin_allowed(const std::string& origin, const std::string& host) const;
    // In a time that does not depend on where the two differ.
    [[nodiscard]] bool token_right(const std::string& given) const;

private:
    [[nodiscard]] bool listed(const std::string& host) const;

    std::vector<std::string> hosts_;
    std::string any_; // ":PORT" of a server of all addresses, else empty
    std::string token_;
};

// Whether a server there listens on all addresses of the machine.
bool is_wildcard(const std::string& address);
// For an address to print: the machine's first one that is no loopback, 127.0.0.1 without one.
std::string own_address();

} // namespace vcam::web
