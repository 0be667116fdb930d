// The record of the last run as a trace file.
#pragma once

#include "sim/base/camera.hpp"
#include "tools/cli/json.hpp"

namespace vcam {

// An object of the JSON trace-event format: times in microseconds of camera time, one thread a lane: each flash
// partition, watchdog, commands, processes, system log, drivers. A stretch of flash begins at the line of the record
// before its own, as the journal has its end only. Throws when the camera never ran.
cli::Json trace_json(const Camera& camera);

} // namespace vcam
