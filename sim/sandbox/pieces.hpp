// Where the programs stand that a camera is put together from.
#pragma once

#include <string>

namespace vcam {

struct Pieces {
    std::string zep;     // the product's executable
    std::string guest;   // vcam-guest: pid 1 and the camera's tools
    std::string preload; // folder with $LIB/libvcamsim.so, $LIB as the dynamic linker expands it
    std::string busybox; // statically linked
};

// From the environment (VCAM_ZEP, VCAM_GUEST, VCAM_PRELOAD, VCAM_BUSYBOX), else beside this
// program as the build or the installation lays them. Throws naming the first missing one.
Pieces find_pieces();
// vcam-web, the page's server (VCAM_WEB), found in the same way.
std::string find_web_server();
std::string own_program(); // the path of this one

} // namespace vcam
