// The product's package checks on an open file.
#pragma once

#include "tools/fwpkg/file.hpp"
#include "upgrade/package.hpp"

namespace fwpkg {

// All checks in a device's order; header holds what was read of it.
zep::Finding check_package(const Input& package, const zep::Expected& device, bool compare_marker,
                           zep::PackageHeader& header);

} // namespace fwpkg
