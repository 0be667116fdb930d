// The page's server.
#pragma once

#include <string>
#include <vector>

namespace vcam::web {

struct ServerOptions {
    std::string vcam; // the command's path
    std::string self; // this program's
    std::string host = "127.0.0.1";
    int port = 0; // 0: a free one
    double pace = 0;
    bool open = false; // show the page in the desktop's browser
    std::vector<std::string> folders;
};

// Serves until a SIGINT or SIGTERM. Prints the address. Throws.
int serve(const ServerOptions& options);

} // namespace vcam::web
