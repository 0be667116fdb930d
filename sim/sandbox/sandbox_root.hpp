// The camera's root, put together by the sandbox's first process.
#pragma once

#include "sim/sandbox/sandbox.hpp"

namespace vcam {

// Mounts and enters the camera's root; /etc is still empty afterwards. Throws.
void build_root(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan);

} // namespace vcam
