// Makes kernel images and packages byte by byte, and catches what the checks log.
#pragma once

#include "tests/support/memory_file.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using Bytes = std::string;

inline Bytes le32(uint32_t v) { return {char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
inline Bytes be32(uint32_t v) { return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; }

// Bit by bit, from the polynomial: shares no table with the code under test.
inline uint32_t slow_crc32(const Bytes& bytes)
{
    uint32_t crc = ~0u;
    for (unsigned char c : bytes) {
        crc ^= c;
        for (int i = 0; i < 8; ++i) crc = crc & 1 ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    return ~crc;
}

struct Kernel {
    Bytes data = Bytes(3000, 'k') + "end of kernel";
    uint32_t magic = 0x27051956;
    uint32_t claimed = UINT32_MAX; // data size in the header; UINT32_MAX: the true one
    char architecture = 2, type = 2, compression = 0;
    uint32_t header_crc_error = 0, data_crc_error = 0;

    [[nodiscard]] Bytes image() const
    {
        uint32_t size = claimed == UINT32_MAX ? uint32_t(data.size()) : claimed;
        Bytes rest = be32(0x4d3cf6f2) + be32(size) + be32(0x80008000) + be32(0x80008000) +
                     be32(slow_crc32(data) ^ data_crc_error) + Bytes{5, architecture, type, compression};
        rest += "Linux-3.0.8";
        rest.resize(56);
        uint32_t crc = slow_crc32(be32(magic) + be32(0) + rest);
        return be32(magic) + be32(crc ^ header_crc_error) + rest + data;
    }
};

inline Bytes jffs2(unsigned blocks)
{
    Bytes image;
    for (unsigned i = 0; i < blocks; ++i)
        image += Bytes("\x85\x19\x03\x20", 4) + Bytes(65536 - 4, char(0xFF));
    return image;
}

inline Bytes package_header(int version, uint32_t a, uint32_t b, uint32_t c, const Bytes& marker = "3510")
{
    Bytes sizes = le32(a) + le32(b) + le32(c);
    if (version == 3) sizes = le32(0xDEADBEEF) + sizes + Bytes(40, 'r');
    return marker + le32(uint32_t(version)) + sizes;
}

inline Bytes package(int version, const Bytes& a, const Bytes& b, const Bytes& c)
{
    return package_header(version, uint32_t(a.size()), uint32_t(b.size()), uint32_t(c.size())) + a + b + c;
}

inline std::vector<std::string> logged;

class UpgradeTest : public testing::Test {
protected:
    UpgradeTest()
    {
        logged.clear();
        former_ = zep::log_redirect([](const char* line) { logged.emplace_back(line); });
    }
    ~UpgradeTest() override { zep::log_redirect(former_); }

private:
    zep::LogSink former_;
};
