// The camera's system log: the datagram socket /dev/log, kept as lines in the state folder.
#pragma once

#include "sim/base/files.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace vcam {

struct SyslogMessage {
    int priority = 13; // facility * 8 + severity; user.notice where the sender gives none
    std::string words; // "ident: text", the sender's time stamp cut off
};

// "<14>Sep 19 04:24:00 upgrade: text"; nothing is refused: without a priority or a date the line is all text.
SyslogMessage parse_syslog(std::string_view datagram);

class SyslogServer {
public:
    void open(const std::string& socket_path, const std::string& log_path); // throws
    [[nodiscard]] int fd() const { return socket_.get(); }
    void drain(); // writes down everything that has arrived

private:
    Fd socket_;
    std::string log_path_;
};

} // namespace vcam
