// Checksums of a stretch of a file.
#include "tools/fwpkg/sums.hpp"

#include "upgrade/crc32.hpp"

#include <algorithm>
#include <array>
#include <nettle/sha2.h>
#include <unistd.h>
#include <vector>

namespace fwpkg {
namespace {

std::string hex_digits(const std::array<uint8_t, SHA256_DIGEST_SIZE>& bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

} // namespace

std::optional<Sums> sums_of(int fd, int64_t offset, int64_t size)
{
    std::vector<uint8_t> buffer(256 * 1024);
    Sums sums;
    sha256_ctx sha;
    sha256_init(&sha);
    while (size > 0) {
        const ssize_t n =
            pread(fd, buffer.data(), size_t(std::min<int64_t>(size, int64_t(buffer.size()))), offset);
        if (n <= 0) return {};
        sums.crc32 = zep::crc32_update(sums.crc32, buffer.data(), size_t(n));
        sha256_update(&sha, size_t(n), buffer.data());
        offset += n;
        size -= n;
    }
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest;
    sha256_digest(&sha, digest.size(), digest.data());
    sums.sha256 = hex_digits(digest);
    return sums;
}

} // namespace fwpkg
