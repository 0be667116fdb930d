// The files of the page, which the build puts into the program.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace vcam::web {

struct PageFile {
    const char *path, *type; // of the address, and its media type
    std::string_view content;
};
std::span<const PageFile> page_files();

// The page in one file, frozen: without a server, with these events of one camera as /events gives them, and with what
// /known gives.
std::string frozen_page(const std::string& events, const std::string& known);

} // namespace vcam::web
