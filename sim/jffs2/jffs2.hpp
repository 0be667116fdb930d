// The configuration partition's file system: what a JFFS2 log in a flash image holds, as ordinary
// files, and back. Little-endian images, as the camera's processor writes them; data compressed with
// zlib or rtime, stored plainly, or left out as a hole. Any other compressor is an error, not a guess.
// Bad blocks, listed in the file beside the image, are passed over as the file system driver does it.
#pragma once

#include <cstdint>
#include <string>

namespace vcam::jffs2 {

// Extracts the newest state of the log into the existing, empty directory `dir`. Damaged nodes are
// passed over as the file system driver does it: what they carried is missing, the rest is there.
// Owners and device nodes are restored as far as the caller's rights reach.
// Returns "" or one line saying what failed.
std::string unpack(const std::string& image_path, uint32_t erase_size, const std::string& dir);

// Brings the log up to date with `dir`: appends nodes for what differs, stored without compression,
// into erased bytes only. What the log holds already is not rewritten. When the free space is used up
// the log is compacted into a fresh one; when even that does not fit, the image stays as it was and
// the error says so. Returns "" or one line saying what failed.
std::string sync(const std::string& image_path, uint32_t erase_size, const std::string& dir);

} // namespace vcam::jffs2
