// The camera's JFFS2 mounts, whose changes reach the flash as they are made. The first process serves them, each in a thread
// of its own; the tool `mount` asks it for one over a socket.
#pragma once

#include "sim/base/camera.hpp"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vcam {

class FlashMounts {
public:
    // `fuse_node` is a descriptor of the host's /dev/fuse, -1 when it has none for us.
    FlashMounts(const Camera& camera, int fuse_node);
    ~FlashMounts();
    FlashMounts(const FlashMounts&) = delete;
    FlashMounts& operator=(const FlashMounts&) = delete;

    // Mounts the partition at the folder, and answers `mount` from now on. "" or why the host does not let us; throws when
    // the partition cannot be read.
    std::string start(const std::string& partition, const std::string& folder);
    [[nodiscard]] int fd() const
    {
        return asked_.get();
    } // readable when accept() has something to do; -1: never
    void accept();
    // No request is answered any more: who waits for one ends with the camera.
    void cut();
    // After the camera's other processes have ended: writes what is still buffered.
    void stop();

private:
    class Mount;
    const Camera& camera_;
    const Fd node_;
    Fd asked_;
    std::array<std::atomic<const void*>, 4> holders_ = {}; // by partition: which mount writes it
    std::vector<std::unique_ptr<Mount>> mounts_;
};

// For the tool `mount`: asks the first process for the partition's file system and mounts it with `mount_it`, which gets the
// type and the options and returns 0 or an errno. -1 when nobody answers; else 0 or an errno.
int mount_served(const std::string& partition,
                 const std::function<int(const char* type, const std::string& options)>& mount_it);

} // namespace vcam
