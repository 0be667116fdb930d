// A package's manifest: its sums beside it, so that a copy can be compared with what was built.
#pragma once

#include "tools/fwpkg/file.hpp"
#include "upgrade/package.hpp"

#include <string>

namespace fwpkg {

// The three images, as info, check and the manifest name them.
inline constexpr const char* kImageNames[] = {"flash1", "flash2", "flash3"};

// A JSON text that ends its last line. The header is the package's; all of its images are in the file.
std::string manifest_of(const Input& package, const zep::PackageHeader& header);

// Whether an existing file is such a manifest, for cli::OutputRule.
bool is_manifest(int fd, off_t size);

// Throws when the file is no manifest.
void require_manifest(const std::string& path);

// "" or the first field in which the package differs from a manifest.
std::string compare_with_manifest(const std::string& path, const Input& package,
                                  const zep::PackageHeader& header);

} // namespace fwpkg
