// What an upgrade with a package would do to a device's flash and settings.
#pragma once

#include "tools/cli/json.hpp"
#include "tools/fwpkg/partitions.hpp"
#include "upgrade/package.hpp"

namespace fwpkg {

// A line for each image and two for the upgrade, each after "<name>: ", on standard output.
void print_prediction(const char* name, const zep::PackageHeader& header, const Partitions& partitions);
cli::Json prediction_json(const zep::PackageHeader& header, const Partitions& partitions);

} // namespace fwpkg
