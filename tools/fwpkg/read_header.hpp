// The header of a package whatever marker and version it has.
#pragma once

#include "tools/fwpkg/file.hpp"
#include "common/base/bytes.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"

#include <unistd.h>

namespace fwpkg {

inline zep::Finding read_header(const Input& package, zep::PackageHeader& header)
{
    zep::log_redirect([](const char*) {});
    uint8_t prefix[zep::kPrefixBytes] = {};
    if (pread(package.fd.get(), prefix, sizeof prefix, 0) < 0)
        return {zep::Flaw::header, 0, 0, sizeof prefix};
    zep::Expected same{0, int32_t(zep::load_le32(prefix + 4)), ""};
    lseek(package.fd.get(), 0, SEEK_SET);
    return zep::check_header(package.fd.get(), same, false, header);
}

} // namespace fwpkg
