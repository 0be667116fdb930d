// JFFS2 mounts of the camera: a folder whose truth is a flash partition. The list of them is the state
// folder's file `mounts`, one line "<mount point> mtdN" each.
#pragma once

#include <string>

namespace vcam::mounts {

// The partition that is mounted at the folder (trailing slashes do not matter), -1 when none is.
int partition_at(const std::string& folder);
// Writes what the folder holds into its partition. "" or what failed.
std::string sync(const std::string& folder);
void remove(const std::string& folder);

} // namespace vcam::mounts
