// Kernel image and JFFS2 image checks.
#include "upgrade/cflash.h"

#include "common/base/fd.hpp"
#include "common/base/whole_io.hpp"
#include "common/base/bytes.hpp"
#include "upgrade/crc32.hpp"
#include "upgrade/file_reader.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace zep {
namespace {

// CRC-32 of the next size bytes of the file, or of those there are; size becomes the number that
// was missing. It comes from the image's header, which may claim any number of bytes.
uint32_t file_crc32(int fd, uint32_t& size)
{
    FileReader reader(fd);
    uint32_t crc = 0;
    while (size) {
        auto chunk = reader.next(size);
        if (chunk.empty()) break;
        crc = crc32_update(crc, chunk.data(), chunk.size());
        size -= uint32_t(chunk.size());
    }
    return crc;
}

// Standalone program, kernel or multi-file image.
constexpr bool bootable_type(uint8_t type) { return type == 1 || type == 2 || type == 4; }

} // namespace

ImageHeader decode_image_header(std::span<const uint8_t, kImageHeaderBytes> bytes)
{
    const uint8_t* p = bytes.data();
    return {load_be32(p), load_be32(p + 4), load_be32(p + 12), load_be32(p + 24), p[29], p[30], p[31]};
}

uint32_t image_header_crc(std::span<const uint8_t, kImageHeaderBytes> bytes)
{
    uint8_t copy[kImageHeaderBytes];
    memcpy(copy, bytes.data(), sizeof copy);
    memset(copy + 4, 0, 4);
    return crc32_update(0, copy, sizeof copy);
}

Finding check_image(int fd, int64_t offset)
{
    uint8_t bytes[kImageHeaderBytes];
    if (lseek(fd, offset, SEEK_SET) < 0) return {Flaw::image_header, offset, 0, kImageHeaderBytes};
    size_t got = read_fully(fd, bytes, sizeof bytes);
    if (got < sizeof bytes) return {Flaw::image_header, offset, int64_t(got), kImageHeaderBytes};

    ImageHeader image = decode_image_header(bytes);
    if (image.magic != kImageMagic) {
        log_alert("[CFlash_CheckImage] Bad Magic Number : %d\n", int32_t(image.magic));
        return {Flaw::image_magic, offset, image.magic, kImageMagic};
    }
    uint32_t crc = image_header_crc(bytes);
    if (crc != image.header_crc) {
        log_alert("[CFlash_CheckImage] crc32 error\n");
        return {Flaw::header_crc, offset + 4, image.header_crc, crc};
    }
    uint32_t missing = image.data_size;
    crc = file_crc32(fd, missing);
    if (crc != image.data_crc || missing) {
        log_alert("[CFlash_CheckImage] filencrc32 error\n");
        if (missing) return {Flaw::data_short, offset + 12, image.data_size, image.data_size - missing};
        return {Flaw::data_crc, offset + 24, image.data_crc, crc};
    }
    if (image.architecture != kArchitectureArm) {
        log_alert("[CFlash_CheckImage] Unsupported Architecture\n");
        return {Flaw::architecture, offset + 29, image.architecture, kArchitectureArm};
    }
    if (!bootable_type(image.type)) {
        log_alert("[CFlash_CheckImage] Wrong Image Type\n");
        return {Flaw::image_type, offset + 30, image.type, 2};
    }
    if (image.compression > 1) {
        log_alert("[CFlash_CheckImage] Unimplemented compression type %d\n", image.compression);
        return {Flaw::compression, offset + 31, image.compression, 1};
    }
    return {};
}

// An unreadable place counts as the end, so a short tail passes without a look at its magic.
Finding check_jffs2(int fd, int64_t offset)
{
    for (;; offset += kJffs2EraseBlock) {
        uint8_t node[kJffs2NodeBytes];
        if (lseek(fd, offset, SEEK_SET) < 0) return {};
        if (read_fully(fd, node, sizeof node) < sizeof node) return {};
        uint32_t magic = load_le32(node) & 0xFFFF;
        if (magic != kJffs2Magic) return {Flaw::jffs2, offset, magic, kJffs2Magic};
    }
}

} // namespace zep

int CFlash_CheckImage(const char* path, int64_t offset)
{
    zep::Fd fd(zep::open_package(path));
    if (!fd) return -1;
    return zep::check_image(fd.get(), offset) ? -1 : 0;
}

int CFlash_CheckJffs2(const char* path, int64_t offset)
{
    zep::Fd fd(zep::open_package(path));
    if (!fd) return -1;
    return zep::check_jffs2(fd.get(), offset) ? -1 : 0;
}
