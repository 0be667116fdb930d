// A firmware package: header, sizes, kernel image and settings image.
#include "common/base/bytes.hpp"
#include "fuzz/fuzz.hpp"
#include "upgrade/cflash.h"
#include "upgrade/crc32.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <algorithm>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// A fuzzer does not guess CRC values: right ones lead it to the checks behind them.
void mend_crcs(Bytes& bytes, size_t image)
{
    if (bytes.size() < image + zep::kImageHeaderBytes) return;
    uint8_t* header = &bytes[image];
    auto decoded = zep::decode_image_header(std::span<const uint8_t, 64>(header, 64));
    size_t held = std::min<size_t>(decoded.data_size, bytes.size() - image - 64);
    zep::store_be32(header, zep::kImageMagic);
    zep::store_be32(header + 24, zep::crc32_update(0, header + 64, held));
    zep::store_be32(header + 4, zep::image_header_crc(std::span<const uint8_t, 64>(header, 64)));
}

void check(const Bytes& bytes, int32_t version)
{
    MemoryFile file(std::string(bytes.begin(), bytes.end()));
    zep::PackageHeader header;
    zep::Expected device{zep::marker_word("3510"), version, ""};
    if (zep::check_header(file.fd(), device, false, header)) return;
    if (zep::check_sizes(header, int64_t(bytes.size()))) return;
    must(header.offset(3) == int64_t(bytes.size()));
    bool good = !zep::check_contents(file.fd(), header);
    must(good == (CFlash_CheckImage(file.path().c_str(), header.offset(0)) == 0 &&
                  (version != 1 || CFlash_CheckJffs2(file.path().c_str(), header.offset(2)) == 0)));
}

} // namespace

void try_bytes(const std::string& bytes)
{
    zep::log_redirect([](const char* line) { must(strlen(line) < 200); });
    Bytes package(bytes.begin(), bytes.end());
    for (int32_t version : {1, 3}) {
        check(package, version);
        mend_crcs(package, zep::header_length(version));
        check(package, version);
    }
}
