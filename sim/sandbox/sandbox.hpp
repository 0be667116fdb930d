// The sandbox: fresh namespaces and a private root, in which a camera's processes live.
//
// The root is the camera's own root/ folder with the host's libraries and programs bound
// read-only into it; the file systems that a camera has of its own (/etc, /dev, /proc) are mounted
// on top. Always in user namespaces, as root too: the kernel locks the mounts for everybody inside and
// refuses to set the clock, to reboot or to load a module.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/sandbox/pieces.hpp"

#include <functional>
#include <string>
#include <vector>

namespace vcam {

struct Bind {
    std::string host;
    std::string inside; // absolute path in the camera
    bool writable = false;
};

// Whether an absolute path lies below what the camera mounts over its root, or has from its state folder.
bool is_mounted_over(const std::string& inside);

// HOST[:INSIDE]; without INSIDE the file appears as /run/bin/<name>. Throws.
Bind parse_bind(const std::string& words, bool writable);

// A storage medium in a slot: a file system of its own in memory, gone with the run.
struct Medium {
    std::string slot; // "sd" or "usb", mounted on /mnt/sd or /mnt/usb
    uint64_t size = 0;
    bool read_only = false;
};

// SLOT=SIZE[,ro], as "sd=16M". Throws.
Medium parse_medium(const std::string& words);

struct SandboxPlan {
    std::vector<Bind> binds;
    std::vector<std::string> arguments;   // of pid 1, its name first
    std::vector<std::string> environment; // of pid 1
    std::string neighbour;                // address of the host at the other end of eth0; empty: none
    std::vector<Medium> media;
};

// Starts pid 1 and returns its number on the host; throws where no namespace can be had. What
// fails later, inside, is told by the child itself: one line, exit status 125. No program of the camera runs before
// make_known has returned: who hears from one can join the camera.
pid_t start_sandbox(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan,
                    const std::function<void(pid_t init)>& make_known);

// Runs a command inside a running camera, pid its first process; returns its exit status as a shell counts
// it, and kSandboxFailure, with a line of its own, as long as that process is on its way in.
int join_sandbox(const Camera& camera, pid_t pid, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment);

constexpr int kSandboxFailure = 125;

} // namespace vcam
