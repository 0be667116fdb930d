// The marker and version that this device expects, and the whole check of a package against them.
#include "upgrade/cflash.h"

#include "common/cutil_conf.h"
#include "common/base/parse_int.hpp"
#include "upgrade/package.hpp"

#include <cstdio>
#include <sys/stat.h>

namespace zep {
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

} // namespace

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

bool read_package(const char* path, bool compare_marker, Package& package)
{
    Expected device = read_expected();
    package.fd.reset(open_package(path));
    if (package.fd.get() <= 0) return false; // 0: with standard input closed nothing may take its place
    if (check_header(package.fd.get(), device, compare_marker, package.header)) return false;
    struct stat info;
    if (fstat(package.fd.get(), &info) < 0) return false;
    package.file_size = info.st_size;
    return true;
}

} // namespace zep

int CFlash_CheckPackage(const char* path)
{
    zep::Package package;
    if (!zep::read_package(path, true, package)) return -1;
    if (zep::check_sizes(package.header, package.file_size)) return -1;
    return zep::check_contents(package.fd.get(), package.header) ? -1 : 0;
}
