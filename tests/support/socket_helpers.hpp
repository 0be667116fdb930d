// What the tests of sockets share.
#pragma once

#include "common/base/fd.hpp"
#include "common/net/inet_address.hpp"
#include "tests/support/run.hpp"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>

inline int port_of(int fd)
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}

struct SocketPair {
    zep::Fd near, far;

    explicit SocketPair(int type = SOCK_STREAM)
    {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, type, 0, fds), 0);
        near.reset(fds[0]);
        far.reset(fds[1]);
    }
};

inline double seconds_of(auto&& action)
{
    auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
