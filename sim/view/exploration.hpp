// The map that the last exploration of a camera has left in its folder.
#pragma once

#include "sim/base/camera.hpp"
#include "tools/cli/json.hpp"

namespace vcam {

inline constexpr const char* kExploration = "exploration.json"; // in the camera's folder
inline constexpr size_t kMostExploration = 8 << 20;             // bytes

// The file's object, each value that a page draws checked: programs of the camera may have written it. Null without the
// file; {"wrong": REASON} for one that cannot be used.
cli::Json read_exploration(const Camera& camera);

} // namespace vcam
