// Package header and sizes against the device and the file.
#include "upgrade/package.hpp"

#include "common/base/bytes.hpp"
#include "common/base/parse_int.hpp"
#include "common/base/whole_io.hpp"
#include "common/cutil_conf.h"
#include "upgrade/cflash.h"
#include "upgrade/log.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace zep {

uint32_t marker_word(const char* text)
{
    uint8_t bytes[4] = {};
    for (unsigned i = 0; i < 4 && text[i]; ++i) bytes[i] = uint8_t(text[i]);
    return load_le32(bytes);
}

int open_package(const char* path) { return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }

namespace {

constexpr char kMarkerFile[] = "/etc/oem_marker.conf";
constexpr char kUpgradeFile[] = "/usr/upgrade";

struct Value {
    char text[CUTIL_CONF_VALUE_SIZE];
};

// A marker file that can be read hides the other one, even if it lacks the key.
void read_marker(Value& value)
{
    if (CUTIL_GetConfValue(kMarkerFile, "MARKER", value.text) == 0) return;
    if (CUTIL_GetConfValue(kUpgradeFile, "MARKER", value.text) == 0) return;
    snprintf(value.text, sizeof value.text, "3510");
}

void read_or(Value& value, const char* key, const char* otherwise)
{
    if (CUTIL_GetConfValue(kUpgradeFile, key, value.text) < 0)
        snprintf(value.text, sizeof value.text, "%s", otherwise);
}

Finding check_marker(uint32_t found, uint32_t expected)
{
    log_alert("CHECK MAGIC_NUMBER : %08x vs %08x\n", found, expected);
    if (found == expected) return {};
    log_alert("MAGIC_NUMBER is not match 1 : %08x vs %08x\n", found, expected);
    return {Flaw::marker, 0, found, expected};
}

Finding check_version(int32_t found, int32_t expected)
{
    log_alert("CHECK VERSION : %d vs %d\n", found, expected);
    if (found == expected) return {};
    log_alert("VERSION is not match 1 : %d vs %d\n", found, expected);
    return {Flaw::version, 4, found, expected};
}

} // namespace

Finding check_header(int fd, const Expected& device, bool compare_marker, PackageHeader& header)
{
    uint8_t bytes[64];
    size_t got = read_fully(fd, bytes, kPrefixBytes);
    if (got < kPrefixBytes) return {Flaw::header, 0, int64_t(got), kPrefixBytes};

    header.marker = load_le32(bytes);
    header.version = int32_t(load_le32(bytes + 4));
    if (compare_marker)
        if (Finding f = check_marker(header.marker, device.marker)) return f;
    if (Finding f = check_version(header.version, device.version)) return f;

    header.length = header_length(header.version);
    if (!header.length) return {Flaw::layout, 4, header.version, 1};
    size_t rest = header.length - kPrefixBytes;
    got = read_fully(fd, bytes + kPrefixBytes, rest);
    if (got < rest) return {Flaw::header, 0, int64_t(kPrefixBytes + got), header.length};
    const uint8_t* sizes = bytes + sizes_offset(header.version);
    for (unsigned i = 0; i < 3; ++i) header.size[i] = load_le32(sizes + 4 * i);
    return {};
}

Finding check_sizes(const PackageHeader& header, int64_t file_size)
{
    if (header.total() == file_size) return {};
    log_alert("Firmware image size : %d vs %d\n", int(header.total()), int(file_size));
    return {Flaw::sizes, sizes_offset(header.version), file_size, header.total()};
}

Finding check_contents(int fd, const PackageHeader& header)
{
    if (Finding f = check_image(fd, header.offset(0))) {
        log_alert("flash1 is not correct\n");
        return f;
    }
    if (header.version != 1) return {};
    if (Finding f = check_jffs2(fd, header.offset(2))) {
        log_alert("flash2 is not correct\n"); // flash3 in truth; log readers know this text
        return f;
    }
    return {};
}

Expected read_expected()
{
    Expected device;
    Value value;
    read_marker(value);
    device.marker = marker_word(value.text);
    read_or(value, "VERSION", "1");
    device.version = parse_int(value.text);
    read_or(value, "MODEL", "0000");
    snprintf(device.model, sizeof device.model, "%.15s", value.text);
    return device;
}

bool read_package(const char* path, bool compare_marker, Package& package, const char*& unreadable)
{
    Expected device = read_expected();
    package.fd.reset(open_package(path));
    unreadable = strerror(errno);
    if (!package.fd) return false;
    unreadable = "standard input is closed"; // nothing may take its place
    if (package.fd.get() == 0) return false;

    errno = 0;
    Finding finding = check_header(package.fd.get(), device, compare_marker, package.header);
    unreadable = nullptr;
    if (finding.flaw == Flaw::header) unreadable = errno ? strerror(errno) : "it ends inside its header";
    if (finding.flaw == Flaw::layout) unreadable = "its version is not known";
    if (finding) return false;

    struct stat info;
    if (fstat(package.fd.get(), &info) < 0) {
        unreadable = strerror(errno);
        return false;
    }
    package.file_size = info.st_size;
    return true;
}

} // namespace zep

int CFlash_CheckPackage(const char* path)
{
    zep::Package package;
    const char* unreadable;
    if (!zep::read_package(path, true, package, unreadable)) return -1;
    if (zep::check_sizes(package.header, package.file_size)) return -1;
    return zep::check_contents(package.fd.get(), package.header) ? -1 : 0;
}
