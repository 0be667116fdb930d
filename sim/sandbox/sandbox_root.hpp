// The camera's root: what its owner mounts, and what the camera may unmount.
#pragma once

#include "sim/sandbox/sandbox.hpp"

#include <sys/types.h>

namespace vcam {

// The reason is on standard error already.
struct AlreadySaid {};

// Mounts and enters the camera's root, /etc and the media not yet in it. For a process outside the camera's
// user namespace: the kernel locks these mounts for everybody inside. `init` is a member of the camera's
// process space, for /proc. Throws Error or AlreadySaid.
void build_root(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan, pid_t init);

// Mounts the media, which the camera itself may unmount. For the camera's first process in its own mount namespace, the
// root entered. Throws.
void mount_media(const SandboxPlan& plan);

} // namespace vcam
