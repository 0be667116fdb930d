// What a dump of a camera's flash is, seen from a run: its state, and the cut that leaves the same bytes.
#pragma once

#include "sim/explore/explorer.hpp"
#include "tools/cli/json.hpp"

#include <string>
#include <vector>

namespace vcam::explore {

// The cut at which the run leaves `flash`, byte for byte: "12/137" when 137 bytes of the twelfth operation were done. Of
// several the first; "" when there is none. The bytes of an operation are done in rising order.
std::string cut_leaving(const Run& run, const Flash& flash);

// Names what the files mtd0 to mtd3 of each folder hold, an object a folder:
//   folder, name ("" when none fits), words, point ("" when no cut leaves these bytes),
//   files: path to {whose, crc32 (null for a damaged file)}, left_over: paths
// Throws for a file that is not there or has not the partition's size.
cli::Json name_dumps(const Camera& camera, const Settings& settings, const std::vector<std::string>& folders);

} // namespace vcam::explore
