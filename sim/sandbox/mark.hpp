// The state that `vcam diff` compares with: taken when a run starts.
#pragma once

#include "sim/base/camera.hpp"

#include <map>
#include <string>

namespace vcam {

struct Mark {
    uint64_t journal_bytes = 0, syslog_bytes = 0;
    std::map<std::string, Entry> files; // of root/
};

void set_mark(const Camera& camera);
Mark read_mark(const Camera& camera); // throws when the camera never ran
// The marked content of a partition.
std::string marked_image(const Camera& camera, const Partition& p);
// Entries of root/ that are the camera's own, without what runs leave as places to mount on.
std::map<std::string, Entry> camera_files(const Camera& camera);

} // namespace vcam
