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
    // The Host header names this server by an address, or as localhost.
    [[nodiscard]] bool host_allowed(const std::string& host) const;
    // No Origin header (""), or the page's own.
    [[nodiscard]] bool origin_allowed(const std::string& origin) const;
    // In a time that does not depend on where the two differ.
    [[nodiscard]] bool token_right(const std::string& given) const;

private:
    std::vector<std::string> hosts_;
    std::string token_;
};

} // namespace vcam::web
